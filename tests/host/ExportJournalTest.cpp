#include "host/core/ExportJournal.h"

#include "host/core/JournalFolder.h"
#include "host/core/JournalFormat.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QThread>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>

using namespace host;

namespace {

ExportChoices someChoices() {
    ExportChoices choices;
    choices.account = QStringLiteral("ann");
    choices.eventId = QStringLiteral("77");
    choices.eventName = QStringLiteral("Smith & Söhne \"Wedding\"\n");
    choices.category = QStringLiteral("Ceremony");
    choices.pricingId = QStringLiteral("5");
    choices.pricingName = QStringLiteral("Standard");
    choices.resize = ResizeBox{QStringLiteral("2560"), QStringLiteral("1440")};
    choices.quality = 950;
    choices.colorSpace = 2;
    return choices;
}

std::vector<RecordedImage> someImages(int count = 3) {
    std::vector<RecordedImage> images;
    for (int i = 0; i < count; ++i)
        images.push_back({"/photos/" + QByteArray::number(i) + ".tif", QStringLiteral("%1.tif").arg(i),
                          QStringLiteral("Shoot")});
    return images;
}

class Journal : public testing::Test {
protected:
    Journal() { QDir().mkpath(exportFolder()); }

    QString folder() const { return place_.filePath(QStringLiteral("state/exports")); }
    QString exportFolder() const { return place_.filePath(QStringLiteral("Quillmark/")); }
    QString preparedPath(int image) const { return exportFolder() + QStringLiteral("%1.jpg").arg(image); }

    std::unique_ptr<ExportJournal> create(std::vector<RecordedImage> images = someImages(),
                                          const ExportChoices& choices = someChoices()) {
        auto journal = ExportJournal::create(folder(), choices, std::move(images), error_);
        EXPECT_TRUE(journal) << error_.toStdString();
        return journal;
    }
    /// With a first try of all its images.
    std::unique_ptr<ExportJournal> begin(int count = 3) {
        auto journal = create(someImages(count));
        journal->beginAttempt(journal->record().choices, journal->record().remaining(), exportFolder());
        return journal;
    }
    /// The plug-in writes the image's file.
    void prepare(ExportJournal& journal, int image) {
        QFile file(preparedPath(image));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        journal.imagePrepared(static_cast<std::uint32_t>(image), file.fileName());
    }
    /// The server confirms the file: the plug-in deletes it, and tells so.
    void upload(ExportJournal& journal, int image) {
        EXPECT_TRUE(QFile::remove(preparedPath(image)));
        journal.imageUploaded(preparedPath(image));
    }
    std::unique_ptr<ExportJournal> reopen(const QString& path) {
        auto journal = ExportJournal::open(path, error_);
        EXPECT_TRUE(journal) << error_.toStdString();
        return journal;
    }
    QByteArray contents(const QString& path) const {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }
    void write(const QString& path, const QByteArray& bytes) const {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    QTemporaryDir place_;
    QString error_;
};

std::vector<ImageOutcome> outcomes(const ExportRecord& record) {
    std::vector<ImageOutcome> all;
    for (const RecordedImage& image : record.images)
        all.push_back(image.outcome);
    return all;
}

constexpr auto kNotUploaded = ImageOutcome::NotUploaded;
constexpr auto kLeftOut = ImageOutcome::LeftOut;
constexpr auto kUploaded = ImageOutcome::Uploaded;

} // namespace

TEST_F(Journal, KeepsChoicesSourcesNamesAndProjects) {
    auto images = someImages(1);
    images.push_back({QByteArray("/no text \xff%41\n.tif"), QStringLiteral("Größe \"1\".tif"), std::nullopt});
    const QString path = create(images)->path();
    const auto journal = reopen(path);
    EXPECT_EQ(journal->record().choices, someChoices());
    ASSERT_EQ(journal->record().images.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(journal->record().images[i].source, images[i].source);
        EXPECT_EQ(journal->record().images[i].name, images[i].name);
        EXPECT_EQ(journal->record().images[i].project, images[i].project);
    }
}

TEST_F(Journal, KeepsEveryOutcome) {
    auto journal = begin();
    prepare(*journal, 0);
    journal->imageLeftOut(1, QStringLiteral("it can't be decoded"));
    prepare(*journal, 2);
    upload(*journal, 0);
    journal->attemptEnded(QStringLiteral("There was an error uploading 2.jpg."));
    EXPECT_FALSE(journal->failure());
    const QString path = journal->path();
    journal.reset();

    const ExportRecord record = reopen(path)->record();
    EXPECT_EQ(outcomes(record), (std::vector{kUploaded, kLeftOut, kNotUploaded}));
    EXPECT_EQ(record.remaining(), (std::vector<std::size_t>{1, 2}));
    EXPECT_EQ(record.images[1].reason, QStringLiteral("it can't be decoded"));
    EXPECT_EQ(record.images[2].reason, QStringLiteral("There was an error uploading 2.jpg."));
    EXPECT_TRUE(record.lacksConfirmation());
    EXPECT_FALSE(record.isSettled());
}

TEST_F(Journal, IsSettledOnceAllIsUploadedAndProcessingConfirmed) {
    auto journal = begin(2);
    for (const int image : {0, 1}) {
        prepare(*journal, image);
        upload(*journal, image);
    }
    EXPECT_TRUE(journal->record().remaining().empty());
    EXPECT_TRUE(journal->record().lacksConfirmation());
    journal->processingConfirmed();
    EXPECT_TRUE(journal->record().isSettled());
}

TEST_F(Journal, ConfirmationDoesNotCoverWhatIsUploadedAfterwards) {
    auto journal = begin(2);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    EXPECT_FALSE(journal->record().lacksConfirmation());
    prepare(*journal, 1);
    upload(*journal, 1);
    EXPECT_TRUE(journal->record().lacksConfirmation());
}

TEST_F(Journal, OfWhichNothingWasUploadedLacksNoConfirmation) {
    auto journal = begin();
    EXPECT_FALSE(journal->record().lacksConfirmation());
    EXPECT_FALSE(journal->record().isSettled());
}

TEST_F(Journal, CountsTheImagesOfAFurtherTryAsThePlugInDoes) {
    auto journal = begin(4);
    for (const int image : {0, 2}) {
        prepare(*journal, image);
        upload(*journal, image);
    }
    journal->attemptEnded(QStringLiteral("cut"));
    const QString path = journal->path();
    journal.reset();

    journal = reopen(path);
    auto choices = someChoices();
    choices.quality = 1200;
    journal->beginAttempt(choices, journal->record().remaining(), exportFolder());
    journal->imageLeftOut(0, QStringLiteral("gone"));
    QFile file(preparedPath(3));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    journal->imagePrepared(1, preparedPath(3));
    upload(*journal, 3);
    journal.reset();

    const ExportRecord record = reopen(path)->record();
    EXPECT_EQ(outcomes(record), (std::vector{kUploaded, kLeftOut, kUploaded, kUploaded}));
    EXPECT_EQ(record.choices, choices);
}

TEST_F(Journal, PassesOverWhatBelongsToNoImageOfTheTry) {
    auto journal = begin(2);
    journal->imagePrepared(2, preparedPath(2));
    journal->imageLeftOut(7, QStringLiteral("gone"));
    journal->imageUploaded(preparedPath(0));
    EXPECT_EQ(outcomes(journal->record()), (std::vector{kNotUploaded, kNotUploaded}));
}

TEST_F(Journal, KeepsNothingThatOtherUsersCouldRead) {
    const auto journal = begin();
    const auto others =
        QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup | QFileDevice::WriteOther;
    EXPECT_FALSE(QFileInfo(folder()).permissions() & others);
    EXPECT_FALSE(QFileInfo(journal->path()).permissions() & others);
}

TEST_F(Journal, CantBeBegunWhereThereIsNoFolder) {
    write(place_.filePath(QStringLiteral("state")), "a file");
    EXPECT_FALSE(ExportJournal::create(folder(), someChoices(), someImages(), error_));
    EXPECT_FALSE(error_.isEmpty());
}

// --- Holding ---

TEST_F(Journal, IsHeldByOneAtATime) {
    auto journal = begin();
    EXPECT_TRUE(journalsIn(folder()).front().isHeld);
    EXPECT_FALSE(ExportJournal::open(journal->path(), error_));
    EXPECT_EQ(error_, QStringLiteral("it belongs to an export that is running"));
    const QString path = journal->path();
    journal.reset();
    EXPECT_FALSE(journalsIn(folder()).front().isHeld);
    EXPECT_TRUE(reopen(path));
}

TEST_F(Journal, IsNotHeldByWhoeverLooksThroughTheFolder) {
    const auto journal = begin();
    const auto found = journalsIn(folder());
    ASSERT_EQ(found.size(), 1U);
    ASSERT_TRUE(found[0].record);
    EXPECT_EQ(found[0].record->images.size(), 3U);
    EXPECT_FALSE(found[0].record->attemptEnded);
}

// --- What a process that died has left ---

TEST_F(Journal, ConcludesFromADeletedFileThatTheServerHadConfirmedIt) {
    auto journal = begin();
    for (const int image : {0, 1})
        prepare(*journal, image);
    QFile::remove(preparedPath(0)); // And then the process died.
    const QString path = journal->path();
    journal.reset();
    EXPECT_EQ(outcomes(reopen(path)->record()), (std::vector{kUploaded, kNotUploaded, kNotUploaded}));
    // Nothing more is concluded later, whatever becomes of the folder.
    QFile::remove(preparedPath(1));
    const ExportRecord record = reopen(path)->record();
    EXPECT_EQ(outcomes(record), (std::vector{kUploaded, kNotUploaded, kNotUploaded}));
    EXPECT_EQ(record.images[1].reason, QStringLiteral("The program ended before the image was uploaded."));
}

TEST_F(Journal, ConcludesNothingFromAFolderThatWasEmptied) {
    auto journal = begin();
    prepare(*journal, 0);
    const QString path = journal->path();
    journal.reset();
    for (const QString& name : QDir(exportFolder()).entryList(QDir::Files | QDir::Hidden))
        QFile::remove(exportFolder() + name);
    EXPECT_EQ(reopen(path)->record().count(kUploaded), 0U);
}

TEST_F(Journal, ConcludesNothingOnceTheSystemHasStartedAgain) {
    auto journal = begin();
    prepare(*journal, 0);
    const QString path = journal->path();
    const QString boot = QString::fromUtf8(journal->record().attemptBoot);
    ASSERT_FALSE(boot.isEmpty());
    journal.reset();
    const QString earlier = QString(boot).fill(QLatin1Char('0'));
    write(path, contents(path).replace(boot.toUtf8(), earlier.toUtf8()));
    for (const QString& name : QDir(exportFolder()).entryList(QDir::Files))
        QFile::rename(exportFolder() + name, exportFolder() + QString(name).replace(boot, earlier));
    QFile::remove(preparedPath(0));
    EXPECT_EQ(reopen(path)->record().count(kUploaded), 0U);
}

TEST_F(Journal, ReconcilesAllThatNobodyHolds) {
    auto died = begin(1);
    prepare(*died, 0);
    QFile::remove(preparedPath(0));
    const QString path = died->path();
    died.reset();
    const auto running = create(someImages(2));
    reconcileJournals(folder());
    for (const FoundJournal& journal : journalsIn(folder())) {
        ASSERT_TRUE(journal.record);
        EXPECT_EQ(journal.record->count(kUploaded), journal.path == path ? 1U : 0U);
        EXPECT_EQ(journal.record->attemptEnded, journal.path == path);
    }
}

// --- A process killed at any point ---

namespace {

/// Runs `body` in a process of its own, to be killed. `body` tells each step that it has done by a letter.
class KilledProcess {
public:
    template <typename Body>
    explicit KilledProcess(const Body& body) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe(ends.data()), 0);
        process_ = fork();
        if (process_ == 0) {
            body([out = ends[1]](char step) { EXPECT_EQ(::write(out, &step, 1), 1); });
            pause();
            _exit(0);
        }
        close(ends[1]);
        in_ = ends[0];
    }
    ~KilledProcess() {
        kill();
        close(in_);
    }
    KilledProcess(const KilledProcess&) = delete;
    KilledProcess& operator=(const KilledProcess&) = delete;

    /// The next step that it has told, in its order; 0 after the last one of a killed process.
    char next() const {
        char step = 0;
        return ::read(in_, &step, 1) == 1 ? step : '\0';
    }
    void kill() {
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = -1;
    }

private:
    pid_t process_ = -1;
    int in_ = -1;
};

} // namespace

TEST_F(Journal, KnowsAfterAKillAtEachStageWhatWasDone) {
    struct Stage {
        const char* name;
        std::function<void(ExportJournal&)> work;
        std::size_t uploaded;
        bool isConfirmed = false;
    };
    // Each one begins where the one before it ends.
    const std::vector<Stage> stages{
        {"created", [](auto&) {}, 0},
        {"begun",
         [this](auto& journal) {
             journal.beginAttempt(journal.record().choices, journal.record().remaining(), exportFolder());
         },
         0},
        {"prepared",
         [this](auto& journal) {
             prepare(journal, 0);
             prepare(journal, 1);
         },
         0},
        {"first uploaded", [this](auto& journal) { upload(journal, 0); }, 1},
        {"second deleted", [this](auto&) { QFile::remove(preparedPath(1)); }, 2},
        {"second told", [this](auto& journal) { journal.imageUploaded(preparedPath(1)); }, 2},
        {"confirmed", [](auto& journal) { journal.processingConfirmed(); }, 2, true},
        {"ended", [](auto& journal) { journal.attemptEnded({}); }, 2, true}};
    for (std::size_t last = 0; last < stages.size(); ++last) {
        QDir(folder()).removeRecursively();
        KilledProcess process([&](const auto& tell) {
            const auto journal = create(someImages(2));
            for (std::size_t i = 0; i <= last; ++i)
                stages[i].work(*journal);
            tell('!');
            pause(); // Holding the journal.
        });
        ASSERT_EQ(process.next(), '!');
        EXPECT_TRUE(journalsIn(folder()).at(0).isHeld);
        process.kill();
        const auto journal = reopen(journalsIn(folder()).at(0).path);
        ASSERT_TRUE(journal);
        EXPECT_EQ(journal->record().count(kUploaded), stages[last].uploaded) << stages[last].name;
        EXPECT_EQ(journal->record().processingConfirmed, stages[last].isConfirmed) << stages[last].name;
        EXPECT_EQ(journal->record().lacksConfirmation(),
                  stages[last].uploaded > 0 && !stages[last].isConfirmed)
            << stages[last].name;
    }
}

TEST_F(Journal, ClaimsNeitherTooMuchNorTooLittleAfterAKillAtAnyMoment) {
    constexpr int kImages = 40;
    for (int run = 0; run < 30; ++run) {
        QDir(folder()).removeRecursively();
        KilledProcess process([&](const auto& tell) {
            const auto journal = begin(kImages);
            for (int image = 0; image < kImages; ++image)
                prepare(*journal, image);
            for (int image = 0; image < kImages; ++image) {
                tell('c'); // The server confirms.
                QFile::remove(preparedPath(image));
                journal->imageUploaded(preparedPath(image));
                tell('n'); // It is noted down.
            }
        });
        std::size_t confirmed = 0;
        std::size_t noted = 0;
        const auto count = [&](char step) { ++(step == 'c' ? confirmed : noted); };
        for (int told = 0; told < 1 + run; ++told)
            count(process.next());
        process.kill();
        while (const char step = process.next())
            count(step);
        const std::size_t uploaded = reopen(journalsIn(folder()).at(0).path)->record().count(kUploaded);
        EXPECT_GE(uploaded, noted);
        EXPECT_LE(uploaded, confirmed);
    }
}

// --- Damage ---

TEST_F(Journal, CutOffAtAnyByteClaimsNothingThatWasNotDone) {
    auto journal = begin();
    for (const int image : {0, 1, 2})
        prepare(*journal, image);
    upload(*journal, 0);
    journal->imageLeftOut(1, QStringLiteral("it can't be decoded"));
    upload(*journal, 2);
    journal->processingConfirmed();
    journal->attemptEnded(QStringLiteral("the end"));
    const QByteArray whole = contents(journal->path());
    const qsizetype beginning = journal_format::beginning(journal->record()).size();
    ASSERT_GT(beginning, 0);

    std::size_t lastCount = 0;
    for (qsizetype length = 0; length <= whole.size(); ++length) {
        qint64 good = -1;
        const auto record = journal_format::read(whole.left(length), good, error_);
        ASSERT_EQ(record.has_value(), length >= beginning) << length;
        if (!record)
            continue;
        EXPECT_EQ(good, whole.left(length).lastIndexOf('\n') + 1);
        EXPECT_GE(record->count(kUploaded), lastCount);
        lastCount = record->count(kUploaded);
        const bool confirmedLineIsWhole = whole.left(length).contains("{\"confirmed\":true}\n");
        EXPECT_EQ(record->processingConfirmed, confirmedLineIsWhole);
    }
    EXPECT_EQ(lastCount, 2U);
}

TEST_F(Journal, GoesOnBehindTheLastWholeLineOfATornOne) {
    auto journal = begin(2);
    prepare(*journal, 0);
    prepare(*journal, 1);
    upload(*journal, 0);
    const QString path = journal->path();
    journal.reset();
    for (const QByteArray& torn : {QByteArray("{\"uploaded\":1"), QByteArray("{"), QByteArray(5000, '\0'),
                                   QByteArray("\0\0{\"uploaded\":1}\n", 17)}) {
        write(path, contents(path) + torn);
        auto again = reopen(path);
        ASSERT_TRUE(again);
        again->beginAttempt(someChoices(), {1}, exportFolder());
        again.reset();
        EXPECT_EQ(outcomes(reopen(path)->record()), (std::vector{kUploaded, kNotUploaded}));
    }
}

TEST_F(Journal, ThatIsDamagedTellsWhere) {
    auto journal = begin(2);
    prepare(*journal, 0);
    const QString path = journal->path();
    journal.reset();
    const QByteArray good = contents(path);
    const QByteArray last = "{\"uploaded\":0}\n";
    for (const char* line : {"", "{", "[1]", "null", "{\"uploaded\":2}", "{\"uploaded\":-1}",
                             "{\"uploaded\":0.5}", "{\"uploaded\":1e300}", "{\"uploaded\":\"0\"}",
                             "{\"prepared\":0}", "{\"leftOut\":0}", "{\"confirmed\":1}", "{\"ended\":null}",
                             "{\"attempt\":7}", "{\"attempt\":[0,9]}", "{\"else\":0}", "\xff\xfe"}) {
        write(path, good + line + '\n' + last);
        EXPECT_FALSE(ExportJournal::open(path, error_)) << line;
        EXPECT_TRUE(error_.startsWith(QStringLiteral("it is damaged"))) << error_.toStdString();
        EXPECT_FALSE(journalsIn(folder()).at(0).record);
        EXPECT_EQ(journalsIn(folder()).at(0).error, error_);
        EXPECT_EQ(contents(path), good + line + '\n' + last) << "it must be left as it is";
    }
}

TEST_F(Journal, WithABeginningThatMakesNoSenseIsRefused) {
    auto journal = create(someImages(1));
    const QString path = journal->path();
    journal.reset();
    const QByteArray good = contents(path);
    struct Change {
        const char* from;
        const char* to;
    };
    for (const auto& [from, to] :
         {Change{"\"name\":\"0.tif\"", "\"name\":\"../0.tif\""},
          Change{"\"name\":\"0.tif\"", "\"name\":\"\""}, Change{"\"name\":\"0.tif\"", "\"name\":\"..\""},
          Change{"\"name\":\"0.tif\"", "\"name\":\"a\\u0000b\""},
          Change{"\"source\":\"/photos", "\"source\":\"photos"}, Change{"/photos/0", "/photos/%00"},
          Change{"\"images\":1", "\"images\":2"}, Change{"\"images\":1", "\"images\":1e18"},
          Change{"\"journal\":1", "\"journal\":2"}, Change{"\"begun\":\"2", "\"begun\":\"x"},
          Change{"\"account\":\"ann\"", "\"account\":1"}, Change{"\"quality\":950", "\"quality\":-1"},
          Change{"\"image\":0", "\"image\":1"}}) {
        ASSERT_TRUE(good.contains(from)) << from;
        write(path, QByteArray(good).replace(from, to));
        EXPECT_FALSE(ExportJournal::open(path, error_)) << to;
    }
    write(path, QByteArray(1'000'000, '[') + '\n');
    EXPECT_FALSE(ExportJournal::open(path, error_));
    write(path, {});
    EXPECT_FALSE(ExportJournal::open(path, error_));
}

TEST_F(Journal, WithAnyByteChangedIsReadOrRefused) {
    auto journal = begin(2);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->attemptEnded(QStringLiteral("cut"));
    const QByteArray whole = contents(journal->path());
    int refused = 0;
    for (qsizetype i = 0; i < whole.size(); ++i) {
        for (const char byte : {'\0', '\n', '"', '{', '9', '\xff'}) {
            QByteArray changed = whole;
            changed[i] = byte;
            qint64 length = 0;
            const auto record = journal_format::read(changed, length, error_);
            refused += record ? 0 : 1;
            if (record) {
                EXPECT_LE(length, changed.size());
            }
        }
    }
    EXPECT_GT(refused, whole.size());
}

TEST_F(Journal, IsARegularFileOfTheUsers) {
    auto journal = begin();
    const QString path = journal->path();
    journal.reset();
    const QString link = folder() + QStringLiteral("/99-link.journal");
    const QString pipe = folder() + QStringLiteral("/98-pipe.journal");
    ASSERT_TRUE(QFile::link(path, link));
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    ASSERT_TRUE(QDir().mkdir(folder() + QStringLiteral("/97-folder.journal")));
    for (const QString& other : {link, pipe, folder() + QStringLiteral("/97-folder.journal"),
                                 folder() + QStringLiteral("/96-none.journal")}) {
        error_.clear();
        EXPECT_FALSE(ExportJournal::open(other, error_)) << other.toStdString();
        EXPECT_FALSE(error_.isEmpty());
    }
    for (const FoundJournal& found : journalsIn(folder()))
        EXPECT_EQ(found.record.has_value(), found.path == path) << found.path.toStdString();
}

// --- A disk that is full ---

namespace {

/// No file of this process grows beyond `size` while this lives, as on a disk that is full.
class FullDisk {
public:
    explicit FullDisk(qint64 size) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{static_cast<rlim_t>(size), before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FullDisk() { setrlimit(RLIMIT_FSIZE, &before_); }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit before_{};
};

} // namespace

TEST_F(Journal, ThatDoesNotFitOntoTheDiskIsNotBegun) {
    const FullDisk full(100);
    EXPECT_FALSE(ExportJournal::create(folder(), someChoices(), someImages(), error_));
    EXPECT_FALSE(error_.isEmpty());
    EXPECT_TRUE(QDir(folder()).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST_F(Journal, StaysWholeOnADiskThatFillsUpAtAnyByteAndCatchesUpLater) {
    const auto work = [this](ExportJournal& journal) {
        prepare(journal, 0);
        upload(journal, 0);
        journal.imageLeftOut(1, QStringLiteral("it can't be decoded"));
    };
    auto journal = begin();
    const qint64 before = QFileInfo(journal->path()).size();
    work(*journal);
    const qint64 after = QFileInfo(journal->path()).size();
    const ExportRecord expected = journal->record();
    for (qint64 size = before; size < after; ++size) {
        journal = begin();
        const QString path = journal->path();
        {
            const FullDisk full(size);
            work(*journal);
        }
        EXPECT_TRUE(journal->failure());
        EXPECT_EQ(outcomes(journal->record()), outcomes(expected));
        qint64 good = 0;
        const QByteArray written = contents(path);
        ASSERT_TRUE(journal_format::read(written, good, error_)) << error_.toStdString();
        EXPECT_EQ(good, written.size());

        journal->attemptEnded({});
        journal.reset();
        EXPECT_EQ(outcomes(reopen(path)->record()), outcomes(expected));
        QDir(folder()).removeRecursively();
    }
}

// --- The folder ---

TEST_F(Journal, FolderListsTheNewestExportFirst) {
    std::vector<QString> paths;
    for (int i = 0; i < 3; ++i) {
        ExportChoices choices = someChoices();
        choices.eventId = QString::number(i);
        paths.insert(paths.begin(), create(someImages(1), choices)->path());
        QThread::msleep(2); // The names differ in their milliseconds.
    }
    std::vector<QString> found;
    for (const FoundJournal& journal : journalsIn(folder()))
        found.push_back(journal.path);
    EXPECT_EQ(found, paths);
}

TEST_F(Journal, FolderOfAUserIsWhereStateIsKept) {
    const QByteArray before = qgetenv("XDG_STATE_HOME");
    qputenv("XDG_STATE_HOME", "/somewhere");
    EXPECT_EQ(userJournalFolder(), QStringLiteral("/somewhere/Quillmark/exports"));
    qputenv("XDG_STATE_HOME", "not/absolute");
    const QString inHome = QDir::homePath() + QStringLiteral("/.local/state/Quillmark/exports");
    EXPECT_EQ(userJournalFolder(), inHome);
    qunsetenv("XDG_STATE_HOME");
    EXPECT_EQ(userJournalFolder(), inHome);
    qputenv("XDG_STATE_HOME", before);
}

TEST_F(Journal, OfASettledExportGoesWithTheNextOneToTheEvent) {
    auto journal = begin(1);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    const QString settled = journal->path();
    journal.reset();
    ExportChoices other = someChoices();
    other.eventId = QStringLiteral("78");
    create(someImages(), other);
    EXPECT_TRUE(QFileInfo::exists(settled));
    create();
    EXPECT_FALSE(QFileInfo::exists(settled));
}

TEST_F(Journal, OfASettledExportIsNotKeptForEver) {
    auto journal = begin(1);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    const QString settled = journal->path();
    const QString left = create(someImages())->path();
    const auto date = [](const QDateTime& time) { return time.toString(Qt::ISODate).toUtf8(); };
    const QDateTime begun = journal->record().begun;
    journal.reset();
    for (const QString& path : {settled, left})
        write(path, contents(path).replace(date(begun), date(begun.addDays(-31))));
    ExportChoices other = someChoices();
    other.eventId = QStringLiteral("78");
    create(someImages(), other);
    EXPECT_FALSE(QFileInfo::exists(settled));
    EXPECT_TRUE(QFileInfo::exists(left)) << "something is left of it";
}

TEST_F(Journal, GoesWhereANewExportHasAllThatRemains) {
    auto journal = begin(3);
    prepare(*journal, 0);
    upload(*journal, 0);
    const QString old = journal->path();
    journal.reset();

    auto images = someImages(3);
    images.erase(images.begin() + 1);
    create(images);
    EXPECT_TRUE(QFileInfo::exists(old)) << "one of its images is not in the new one";
    ExportChoices elsewhere = someChoices();
    elsewhere.category = QStringLiteral("Party");
    create(someImages(3), elsewhere);
    EXPECT_TRUE(QFileInfo::exists(old)) << "the new one goes elsewhere";
    images = someImages(3);
    images.erase(images.begin());
    create(images);
    EXPECT_FALSE(QFileInfo::exists(old));
}

TEST_F(Journal, OfARunningExportStays) {
    const auto running = begin();
    create();
    EXPECT_TRUE(QFileInfo::exists(running->path()));
}

TEST_F(Journal, ThatIsDiscardedIsGone) {
    auto journal = begin();
    EXPECT_TRUE(journal->discard());
    EXPECT_TRUE(journalsIn(folder()).empty());
    prepare(*journal, 0);
    upload(*journal, 0);
    EXPECT_EQ(journal->record().count(kUploaded), 1U);
}
