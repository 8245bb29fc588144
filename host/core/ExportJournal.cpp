#include "host/core/ExportJournal.h"

#include "host/core/JournalFile.h"
#include "host/core/JournalFolder.h"
#include "host/core/JournalFormat.h"
#include "host/core/UniqueNames.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>

namespace host {

using Durability = JournalFile::Durability;

namespace {

const QString kDied = QStringLiteral("The program ended before the image was uploaded.");
const QString kNotWritten = QStringLiteral("Its file could not be written into the temporary folder.");
const QString kNoTurn = QStringLiteral("Its turn did not come.");
/// Of the lines about an image, at most: prepared, its path, left out or uploaded. And of a few others.
constexpr qint64 kGrowthPerImage = 512;
constexpr qint64 kGrowthBesides = 4096;

qint64 expectedGrowth(const ExportRecord& record) {
    return static_cast<qint64>(record.images.size()) * kGrowthPerImage + kGrowthBesides;
}

/// Changes whenever the system starts.
QByteArray bootId() {
    QFile file(QStringLiteral("/proc/sys/kernel/random/boot_id"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray();
}

} // namespace

std::unique_ptr<ExportJournal> ExportJournal::create(const QString& folder, const QString& service,
                                                     const ExportChoices& choices,
                                                     std::vector<RecordedImage> images,
                                                     std::vector<SentName> sentBefore, QString& error) {
    if (!makeJournalFolder(folder, error))
        return nullptr;
    ExportRecord record;
    record.begun = QDateTime::currentDateTimeUtc();
    record.service = service;
    record.choices = choices;
    record.sentBefore = std::move(sentBefore);
    for (RecordedImage& image : images)
        record.images.push_back(
            {image.source, std::move(image.name), std::move(image.project), fileStamp(image.source)});
    auto file = JournalFile::create(newJournalPath(folder, record.begun), journal_format::beginning(record),
                                    expectedGrowth(record), error);
    if (!file)
        return nullptr;
    removeSupersededJournals(folder, record);
    return std::unique_ptr<ExportJournal>(new ExportJournal(std::move(file), std::move(record)));
}

std::unique_ptr<ExportJournal> ExportJournal::open(const QString& path, QString& error) {
    QByteArray contents;
    auto file = JournalFile::open(path, contents, error);
    if (!file)
        return nullptr;
    qint64 length = 0;
    auto record = journal_format::read(contents, length, error);
    if (!record || !file->cutTo(length, expectedGrowth(*record), error))
        return nullptr;
    std::unique_ptr<ExportJournal> journal(new ExportJournal(std::move(file), *std::move(record)));
    journal->settleInterruptedAttempt();
    return journal;
}

ExportJournal::ExportJournal(std::unique_ptr<JournalFile> file, ExportRecord record)
    : file_(std::move(file))
    , record_(std::move(record)) {}

ExportJournal::~ExportJournal() = default;

QString ExportJournal::path() const {
    return file_->path();
}

std::optional<QString> ExportJournal::failure() const {
    return file_->failure();
}

bool ExportJournal::discard() {
    return file_->remove();
}

/// The record is changed by what the line says, as it will be by whoever reads the file.
void ExportJournal::note(const QByteArray& line, Durability durability) {
    const bool makesSense = journal_format::apply(line, record_);
    Q_ASSERT(makesSense);
    if (makesSense)
        file_->append(line, durability);
}

// --- A try ---

void ExportJournal::beginAttempt(const ExportChoices& choices, std::vector<std::size_t> images,
                                 const QString& exportFolder) {
    note(journal_format::attemptBegan(choices, images, exportFolder, bootId()), Durability::Now);
    lastSent_ = QDateTime::currentDateTime();
    endsAtImage_ = false;
    QFile marker(markerPath());
    marker.open(QIODevice::WriteOnly | QIODevice::NewOnly);
}

std::optional<std::size_t> ExportJournal::imageOfAttempt(std::uint32_t index) const {
    return index < record_.attempt.size() ? std::optional(record_.attempt[index]) : std::nullopt;
}

void ExportJournal::imagePrepared(std::uint32_t index, const QString& path) {
    // Not forced: after a power cut nothing is concluded from it.
    if (const auto image = imageOfAttempt(index))
        note(journal_format::imagePrepared(*image, path), Durability::Eventually);
}

void ExportJournal::imageCaptured(std::uint32_t index, const QDateTime& time) {
    const auto image = imageOfAttempt(index);
    if (image && record_.images[*image].captured != time)
        note(journal_format::imageCaptured(*image, time), Durability::Eventually);
}

void ExportJournal::imageLeftOut(std::uint32_t index, const QString& reason) {
    if (const auto image = imageOfAttempt(index))
        note(journal_format::imageLeftOut(*image, reason), Durability::Eventually);
}

void ExportJournal::imageUploaded(const QString& path) {
    const auto image = std::find_if(record_.attempt.begin(), record_.attempt.end(), [&](std::size_t index) {
        return record_.images[index].preparedPath == path;
    });
    if (image == record_.attempt.end())
        return;
    note(journal_format::imageUploaded(*image), Durability::Soon);
    lastSent_ = QDateTime::currentDateTime();
}

void ExportJournal::offeringEnded() {
    for (const std::size_t index : record_.attempt) {
        const RecordedImage& image = record_.images[index];
        if (image.outcome == ImageOutcome::NotUploaded && image.preparedPath.isEmpty())
            note(journal_format::imageFailed(index, kNotWritten), Durability::Eventually);
    }
}

void ExportJournal::troubleTold(const QString& text) {
    // The plug-in uploads in the order in which it got the images.
    const auto next = std::find_if(record_.attempt.begin(), record_.attempt.end(), [&](std::size_t index) {
        return record_.images[index].outcome == ImageOutcome::NotUploaded;
    });
    if (next == record_.attempt.end())
        return;
    const RecordedImage& image = record_.images[*next];
    const QString file =
        image.preparedPath.isEmpty() ? preparedName(image.name) : QFileInfo(image.preparedPath).fileName();
    if (!text.contains(file))
        return;
    endsAtImage_ = true;
    if (image.reason.isEmpty())
        note(journal_format::imageFailed(*next, text), Durability::Eventually);
}

Confirmation ExportJournal::processingConfirmed() {
    note(journal_format::processingConfirmed(), Durability::Now);
    return {QFileInfo(path()).path(), record_, lastSent_};
}

void confirmEarlierExports(const Confirmation& confirmation) {
    const auto isOfItsEvent = [&](const ExportRecord& other) {
        return sameEvent(other, confirmation.record);
    };
    for (const FoundJournal& found : journalsIn(confirmation.folder, isOfItsEvent)) {
        // What was sent while the export waited for its answer, the answer may not cover.
        if (found.isHeld || !found.record || !found.record->lacksConfirmation() ||
            QFileInfo(found.path).lastModified() > confirmation.lastSent)
            continue;
        QString ignored;
        if (const auto earlier = ExportJournal::open(found.path, ignored))
            earlier->processingConfirmed();
    }
    removeSupersededJournals(confirmation.folder, confirmation.record);
}

void ExportJournal::attemptEnded(const QString& reason) {
    note(journal_format::attemptEnded(endsAtImage_ ? kNoTurn : reason), Durability::Now);
    QFile::remove(markerPath());
}

// --- What a process that died has left ---

/// Making a plug-in object empties the folder of the marker too, and after a start of the system nothing is
/// certain.
QString ExportJournal::markerPath() const {
    return folderMarkerPath(path(), record_);
}

void ExportJournal::settleInterruptedAttempt() {
    if (record_.attemptEnded)
        return;
    std::vector<std::size_t> gone;
    for (const std::size_t index : record_.attempt) {
        const RecordedImage& image = record_.images[index];
        if (image.outcome == ImageOutcome::NotUploaded && !image.preparedPath.isEmpty() &&
            !QFileInfo::exists(image.preparedPath))
            gone.push_back(index);
    }
    // Looked at after the files: whoever empties the folder removes the marker first.
    const bool folderIsUntouched =
        !record_.attemptBoot.isEmpty() && record_.attemptBoot == bootId() && QFileInfo::exists(markerPath());
    if (folderIsUntouched) {
        // The plug-in deletes a file when the server has confirmed it, and tells so afterwards.
        for (const std::size_t index : gone)
            note(journal_format::imageUploaded(index), Durability::Soon);
    }
    attemptEnded(kDied);
}

} // namespace host
