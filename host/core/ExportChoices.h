#pragma once

#include <QtCore/QString>

#include <optional>

namespace host {

/// The resize box, in pixels, as a person would type it in.
struct ResizeBox {
    QString width;
    QString height;
    bool operator==(const ResizeBox&) const = default;
};

/// What was chosen in a plug-in's settings view for an export. Never a password.
struct ExportChoices {
    QString account;
    QString eventId;
    QString eventName;
    std::optional<QString> category; ///< Listed or typed; none where none was chosen.
    bool autoCategories = false;     ///< Name each image's category after its project.
    std::optional<QString> pricingId;
    QString pricingName;
    std::optional<ResizeBox> resize; ///< None where the account's own box, or no box, holds.
    int quality = 0;                 ///< The slider's position, in units of `hostapi::panel::kQualityScale`.
    int colorSpace = 0;              ///< Index in the colour space chooser.

    bool operator==(const ExportChoices&) const = default;
};

/// What is to be chosen in a plug-in's settings view; what is empty stays as it stands there.
struct WishedChoices {
    WishedChoices() = default;
    /// All of them.
    explicit WishedChoices(const ExportChoices& choices);

    std::optional<QString> event; ///< An id, or else a name that only one event has.
    std::optional<QString> category;
    bool autoCategories = false;
    std::optional<QString> pricing; ///< An id, or else a name that only one template has.
    std::optional<ResizeBox> resize;
    std::optional<int> quality;    ///< In units of `hostapi::panel::kQualityScale`.
    std::optional<int> colorSpace; ///< Index in the colour space chooser.
};

/// Whether images of both, sent to one service, go to the same remote folders of the same account, so that a
/// file of one replaces the file of that name of the other.
bool sameDestination(const ExportChoices& one, const ExportChoices& other);

} // namespace host
