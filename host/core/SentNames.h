#pragma once

#include "host/core/ExportRecord.h"

#include <map>
#include <utility>
#include <vector>

namespace host {

/// The names under which exports have sent photographs into the folders of an event, or are still to send
/// them.
///
/// The service keeps one file of a name in a folder: the photograph that was given a name last has it. An
/// edited photograph replaces what was sent of it before; one of another folder or card that happens to be
/// called the same does not, even where that card is found under the same path.
class SentNames {
public:
    SentNames() = default;
    /// Of all exports to the event of `choices` that the journals in `folder` know of.
    static SentNames inJournals(const QString& folder, const QString& service, const ExportChoices& choices);

    /// What `record` knows, which is later than all that was added before.
    void add(const ExportRecord& record);

    /// Names images that are to be exported with `choices`: each by the name that it has at the service, else
    /// by its own one, numbered where another photograph has that name. Looks at their files.
    void giveNames(std::vector<RecordedImage>& images, const ExportChoices& choices) const;
    /// The other photograph whose place an image of that name would take; null where there is none. On the
    /// service's host, letters' cases count.
    const SentName* replacedBy(const RecordedImage& image, const ExportChoices& choices) const;

    std::vector<SentName> all() const;

private:
    using Place = std::pair<QString, QString>; ///< The folder, and what is the same in equal names.

    void add(SentName sent);
    const SentName* nameOf(const QString& folder, const QByteArray& source) const;

    std::map<Place, SentName> sent_;
    std::map<std::pair<QString, QByteArray>, std::vector<Place>>
        placesOf_; ///< By folder and source; the latest last.
};

} // namespace host
