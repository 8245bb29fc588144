#include "host/core/JournalFolder.h"

#include "host/core/ExportJournal.h"
#include "host/core/JournalFile.h"
#include "host/core/JournalFormat.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRandomGenerator>
#include <QtCore/QSet>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace host {

namespace {

constexpr char kStateHomeVariable[] = "XDG_STATE_HOME";
const QString kStateHomeInHome = QStringLiteral("/.local/state");
const QString kFolderInStateHome = QStringLiteral("/Quillmark/exports");
const QString kSuffix = QStringLiteral(".journal");
const QString kMarkerPrefix = QStringLiteral("journal-of-");
/// A file that nobody has finished making for so long is nobody's any more.
constexpr std::chrono::hours kUnfinishedFor{24};
/// How long the journal of an export that needs no more is kept, where no other export to its event comes.
constexpr int kSettledKeptDays = 30;

QString imageKey(const RecordedImage& image) {
    return QStringLiteral("%1/%2/%3")
        .arg(image.name, image.project.value_or(QString()),
             QString::fromLatin1(image.source.toPercentEncoding()));
}

/// Of journals of which no more than the first line is known.
bool mayBeSuperseded(const ExportRecord& older, const ExportRecord& newest) {
    return older.begun <= newest.begun &&
           (sameEvent(older, newest) || older.begun.daysTo(newest.begun) > kSettledKeptDays);
}

/// Of those that may be superseded.
bool isNeededBeside(const ExportRecord& newest, const ExportRecord& older) {
    if (older.isSettled())
        return false;
    // Whether the new one will bring its confirmation, nobody knows yet.
    if (older.lacksConfirmation() || older.service != newest.service ||
        !sameDestination(newest.choices, older.choices))
        return true;
    QSet<QString> again;
    for (const RecordedImage& image : newest.images)
        again.insert(imageKey(image));
    const auto remaining = older.remaining();
    return std::any_of(remaining.begin(), remaining.end(), [&](std::size_t index) {
        const RecordedImage& image = older.images[index];
        // Under an equal path, another photograph may go.
        return !again.contains(imageKey(image)) || !isStillThere(image.source, traceOf(image, older));
    });
}

void removeUnfinishedFiles(const QString& folder) {
    const QDir dir(folder);
    const auto limit = QDateTime::currentDateTime().addDuration(-kUnfinishedFor);
    for (const QFileInfo& file :
         dir.entryInfoList({kUnfinishedFilePrefix + QLatin1Char('*')}, QDir::Files | QDir::Hidden)) {
        if (file.lastModified() < limit)
            QFile::remove(file.filePath());
    }
}

} // namespace

QString userJournalFolder() {
    const QString stateHome = qEnvironmentVariable(kStateHomeVariable);
    // By the rule for such variables, one that holds no absolute path does not count.
    return (QDir::isAbsolutePath(stateHome) ? stateHome : QDir::homePath() + kStateHomeInHome) +
           kFolderInStateHome;
}

bool makeJournalFolder(const QString& folder, QString& error) {
    const std::filesystem::path path(QFile::encodeName(folder).toStdString());
    std::error_code failure;
    if (std::filesystem::create_directories(path, failure))
        std::filesystem::permissions(path, std::filesystem::perms::owner_all, failure);
    if (failure)
        error = QString::fromStdString(failure.message());
    return !failure;
}

QString newJournalPath(const QString& folder, const QDateTime& begun) {
    return QStringLiteral("%1/%2-%3%4")
        .arg(folder, begun.toString(QStringLiteral("yyyyMMdd'T'HHmmsszzz")),
             QString::number(QRandomGenerator::system()->generate(), 36), kSuffix);
}

std::vector<FoundJournal> journalsIn(const QString& folder,
                                     const std::function<bool(const ExportRecord& firstLine)>& areWanted) {
    std::vector<FoundJournal> found;
    // The names begin with the time.
    const QStringList names = QDir(folder).entryList({QLatin1Char('*') + kSuffix}, QDir::Files | QDir::System,
                                                     QDir::Name | QDir::Reversed);
    for (const QString& name : names) {
        FoundJournal journal;
        journal.path = folder + QLatin1Char('/') + name;
        const auto contents = readJournalFile(journal.path, journal.isHeld, journal.error);
        const auto firstLine =
            areWanted && contents ? journal_format::readFirstLine(*contents) : std::nullopt;
        if (firstLine && !areWanted(*firstLine))
            continue;
        qint64 length = 0;
        if (contents)
            journal.record = journal_format::read(*contents, length, journal.error);
        found.push_back(std::move(journal));
    }
    return found;
}

QString folderMarkerPath(const QString& journalPath, const ExportRecord& record) {
    return QStringLiteral("%1/%2%3-%4")
        .arg(record.attemptFolder, kMarkerPrefix, QFileInfo(journalPath).completeBaseName(),
             QString::fromUtf8(record.attemptBoot));
}

void reconcileJournals(const QString& folder) {
    for (const FoundJournal& journal : journalsIn(folder)) {
        if (!journal.record || journal.record->attemptEnded)
            continue;
        QString ignored;
        // Opening it does it. Where its holder may be about to do so, or may die before it has, the folder
        // must not look untouched any more once the first file is gone from it.
        if (journal.isHeld || !ExportJournal::open(journal.path, ignored))
            QFile::remove(folderMarkerPath(journal.path, *journal.record));
    }
}

void removeSupersededJournals(const QString& folder, const ExportRecord& newest) {
    removeUnfinishedFiles(folder);
    const auto mayGo = [&](const ExportRecord& older) { return mayBeSuperseded(older, newest); };
    for (const FoundJournal& journal : journalsIn(folder, mayGo)) {
        if (journal.isHeld || !journal.record || isNeededBeside(newest, *journal.record))
            continue;
        QByteArray contents;
        QString ignored;
        // Held while it goes, so that nobody begins to write into a file without a name.
        if (const auto file = JournalFile::open(journal.path, contents, ignored))
            file->remove();
    }
}

} // namespace host
