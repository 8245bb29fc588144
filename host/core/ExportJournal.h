#pragma once

#include "host/core/ExportRecord.h"
#include "host/core/JournalFile.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace host {

/// That the service has answered the finishing request of an export. It holds for what earlier exports have
/// uploaded to the event too.
struct Confirmation {
    QString folder; ///< In which the journals lie.
    ExportRecord record;
    QDateTime lastSent; ///< When the export's last image was uploaded: nothing later is covered.
};

/// The journals of earlier exports learn of it, and those go that nobody needs any more. Any thread.
void confirmEarlierExports(const Confirmation& confirmation);

/// Keeps the outcome of every image of an export on the disk, so that it survives a crash or a power cut.
///
/// One file an export, its further tries included; see JournalFolder.h for finding them. Whoever has one open
/// holds it: no other process can. What is told here goes into the file before the call returns; it is forced
/// to the disk by then for `create`, `beginAttempt`, `processingConfirmed` and `attemptEnded`, soon after for
/// `imageUploaded`. A journal that can't be written goes on in memory, see `failure`. One thread at a time.
class ExportJournal {
public:
    /// Begins the journal of a new export to `service` in `folder`, which is made where it is missing. Of
    /// `images` only source, name and project count; `sentBefore` is what earlier exports have sent to the
    /// event. Empty, with `error`, where it can't be written.
    static std::unique_ptr<ExportJournal> create(const QString& folder, const QString& service,
                                                 const ExportChoices& choices,
                                                 std::vector<RecordedImage> images,
                                                 std::vector<SentName> sentBefore, QString& error);
    /// Opens the journal of an earlier export, to try again what remains. What a process that died has
    /// uploaded without noting it down is noted down now. Empty, with `error`, where the file is no journal
    /// of this version, is damaged, or is held by another process.
    static std::unique_ptr<ExportJournal> open(const QString& path, QString& error);
    ~ExportJournal();

    const ExportRecord& record() const { return record_; }
    QString path() const;

    /// A try begins: of `images`, indices into the record's, in the order in which the plug-in gets them;
    /// none for an export that only asks for the confirmation. `choices` must have the destination of the
    /// record's. `exportFolder` is where the plug-in keeps its files. Call it before the first image is
    /// offered.
    void beginAttempt(const ExportChoices& choices, std::vector<std::size_t> images,
                      const QString& exportFolder);

    // What the plug-in's observer and the export thread tell. `index` counts the images of the try, as the
    // plug-in does; what belongs to no image of the try is passed over.
    void imagePrepared(std::uint32_t index, const QString& path);
    /// When the photograph was taken, by which it is known again.
    void imageCaptured(std::uint32_t index, const QDateTime& time);
    void imageLeftOut(std::uint32_t index, const QString& reason);
    void imageUploaded(const QString& path);
    /// All images of the try were offered: those that were neither prepared nor left out could not be
    /// written.
    void offeringEnded();
    /// Something went wrong, and was told in these words: where they name the file whose turn to be uploaded
    /// it is, it was at that image.
    void troubleTold(const QString& text);

    /// The plug-in has told its host to finish: the service has answered the finishing request. What it means
    /// for earlier exports is for `confirmEarlierExports`.
    Confirmation processingConfirmed();
    /// The try is over. `reason`: why those of its images that are not uploaded are not, unless it ended at
    /// one image; empty where there is none.
    void attemptEnded(const QString& reason);

    /// Why the file perhaps does not say what the record in memory does, see `JournalFile::failure`. Once a
    /// try has ended, what was caught up with is forgotten.
    std::optional<QString> failure() const;

    /// Removes the file: the user gives up what remains. The journal goes on in memory.
    bool discard();

private:
    ExportJournal(std::unique_ptr<JournalFile> file, ExportRecord record);
    void note(const QByteArray& line, JournalFile::Durability durability);
    void settleInterruptedAttempt();
    QString markerPath() const;
    std::optional<std::size_t> imageOfAttempt(std::uint32_t index) const;

    std::unique_ptr<JournalFile> file_;
    ExportRecord record_;
    bool endsAtImage_ = false; ///< The try does.
    QDateTime lastSent_;       ///< When the last image of the try was uploaded, or else the try began.
};

} // namespace host
