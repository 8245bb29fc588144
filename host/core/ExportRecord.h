#pragma once

#include "host/core/ExportChoices.h"
#include "host/core/PhotographFile.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <cstddef>
#include <optional>
#include <vector>

namespace host {

enum class ImageOutcome {
    NotUploaded, ///< Not reached, or its upload failed; part of a file of that name may lie on the server.
    LeftOut,     ///< It could not be read: nothing of it was sent.
    Uploaded,    ///< The FTP server has confirmed the whole file.
};

/// One image of a recorded export.
struct RecordedImage {
    QByteArray source; ///< Absolute path of the file, as the system keeps it.
    QString name;      ///< Under which it is offered to the plug-in. Each further try uses the same, so that
                       ///< it replaces what an earlier one has sent of it.
    std::optional<QString> project{};
    std::optional<FileStamp> stamp{}; ///< Of the file, when the export began; empty where it was not there.
    /// When it was taken, by the camera's clock; invalid until it was offered, or where the file does not
    /// tell.
    QDateTime captured{};
    ImageOutcome outcome = ImageOutcome::NotUploaded;
    QString reason{};       ///< Why it is not uploaded, for a person to read; empty where nothing is known.
    bool hasFailed = false; ///< A try could not write it, or ended at it: the next one takes it last.
    QString preparedPath{}; ///< The plug-in's file, which it deletes once the server has confirmed it; empty
                            ///< where there is none.
    bool operator==(const RecordedImage&) const = default;
};

/// The name that a photograph has in one of an event's folders.
struct SentName {
    QString folder; ///< The category, or the project in its place; empty where there was neither.
    QString name;   ///< As in `RecordedImage`.
    QByteArray source;
    PhotographTrace trace{};

    bool operator==(const SentName&) const = default;
};

/// What is known of an export and of all further tries of it.
struct ExportRecord {
    QDateTime begun; ///< UTC.
    QString service; ///< To which it goes: `serviceIdentity`.
    ExportChoices choices;
    std::vector<RecordedImage> images;
    /// What exports to the event had sent when this one began: it outlives their journals.
    std::vector<SentName> sentBefore;
    /// The service has confirmed that it processes all that is uploaded.
    bool processingConfirmed = false;

    // The last try.
    std::vector<std::size_t> attempt; ///< Indices into `images`.
    QString attemptFolder;            ///< The plug-in's export folder.
    QByteArray attemptBoot;           ///< Identifies the run of the system in which it began.
    bool attemptEnded = false;        ///< False while it runs, and where its process died.

    bool operator==(const ExportRecord&) const = default;

    /// The images that did not make it: not uploaded, or left out. Those that have failed stand behind the
    /// others, which they must not keep from their turn for ever.
    std::vector<std::size_t> remaining() const;
    std::size_t count(ImageOutcome outcome) const;
    /// Images are uploaded, and the service has not confirmed that it processes them: the finishing request
    /// is to be sent, if need be by an export of no images.
    bool lacksConfirmation() const;
    /// Nothing is left to do.
    bool isSettled() const;
};

/// Of one of the record's images.
PhotographTrace traceOf(const RecordedImage& image, const ExportRecord& record);

/// Whether the plug-in is to go on once all images of a try were offered, of which `leftOut` were left out:
/// there is something to send, or what `record`'s earlier tries have sent waits for its confirmation. Else
/// finishing would have the service process an event to which nothing was sent.
bool isToBeFinished(std::size_t offered, std::size_t leftOut, const ExportRecord* record);

/// Whether it goes to the event of `choices` of that service's account.
bool isOfEvent(const ExportRecord& record, const QString& service, const ExportChoices& choices);
/// Whether both go to the same event of the same account and service: one finishing request has it process
/// the uploaded images of both.
bool sameEvent(const ExportRecord& one, const ExportRecord& other);

} // namespace host
