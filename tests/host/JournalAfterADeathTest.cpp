#include "host/core/JournalFolder.h"
#include "tests/host/JournalFixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <functional>

using namespace host;

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

TEST_F(Journal, ConcludesNothingOnceAnotherProcessIsAboutToEmptyTheFolder) {
    auto journal = begin();
    prepare(*journal, 0);
    reconcileJournals(folder());
    QFile::remove(preparedPath(0)); // The first of all that go.
    const QString path = journal->path();
    journal.reset();
    EXPECT_EQ(reopen(path)->record().count(kUploaded), 0U);
}

TEST_F(Journal, ConcludesNothingFromAFolderThatAnotherProcessIsEmptying) {
    constexpr int kImages = 300;
    for (int run = 0; run < 15; ++run) {
        QDir(folder()).removeRecursively();
        auto journal = begin(kImages);
        for (int image = 0; image < kImages; ++image)
            prepare(*journal, image);
        const QString path = journal->path();
        journal.reset();
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        const pid_t emptying = fork();
        if (emptying == 0) {
            char go = 0;
            close(ends[1]);
            EXPECT_EQ(::read(ends[0], &go, 1), 0);
            reconcileJournals(folder());
            for (const QString& name :
                 QDir(exportFolder()).entryList(QDir::Files | QDir::Hidden, QDir::Unsorted))
                QFile::remove(exportFolder() + name);
            _exit(0);
        }
        close(ends[0]);
        close(ends[1]); // Both begin at once.
        ExportJournal::open(path, error_);
        waitpid(emptying, nullptr, 0);
        EXPECT_EQ(reopen(path)->record().count(kUploaded), 0U);
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
