#include "host/core/JournalFormat.h"
#include "tests/host/JournalFixture.h"
#include "tests/support/Waiting.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

using namespace host;

namespace {

// What these calls fail with; 0 where they work.
std::atomic<int> forcingFiles{0};
std::atomic<int> forcingFolders{0};
std::atomic<int> truncating{0};
std::atomic<int> failedCalls{0};

/// While it lives, one kind of call fails.
class FailingCall {
public:
    FailingCall(std::atomic<int>& call, int error)
        : call_(call) {
        failedCalls = 0;
        call_ = error;
    }
    ~FailingCall() { call_ = 0; }
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

private:
    std::atomic<int>& call_;
};

bool fails(const std::atomic<int>& call) {
    const int error = call;
    if (error == 0)
        return false;
    ++failedCalls;
    errno = error;
    return true;
}

bool isFolder(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

// The linker puts them in the place of the system's.
extern "C" {

int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor) {
    return fails(isFolder(descriptor) ? forcingFolders : forcingFiles) ? -1 : __real_fsync(descriptor);
}

int __real_fdatasync(int descriptor);
int __wrap_fdatasync(int descriptor) {
    return fails(forcingFiles) ? -1 : __real_fdatasync(descriptor);
}

int __real_ftruncate(int descriptor, off_t length);
int __wrap_ftruncate(int descriptor, off_t length) {
    return fails(truncating) ? -1 : __real_ftruncate(descriptor, length);
}

} // extern "C"

// --- A disk that fails ---

TEST_F(Journal, IsNotOpenedWhereItsDamagedEndCantBeCutOff) {
    auto journal = begin(1);
    const QString path = journal->path();
    journal.reset();
    const QByteArray damaged = contents(path) + "{\"upl";
    write(path, damaged);
    {
        const FailingCall call(truncating, EIO);
        EXPECT_FALSE(ExportJournal::open(path, error_));
        EXPECT_EQ(error_, QString::fromLocal8Bit(std::strerror(EIO)));
        EXPECT_EQ(contents(path), damaged);
    }
    {
        const FailingCall call(forcingFiles, EIO);
        EXPECT_FALSE(ExportJournal::open(path, error_));
    }
    EXPECT_TRUE(reopen(path));
}

TEST_F(Journal, LeavesNothingBehindWhereItsNameCantBeForcedToTheDisk) {
    const FailingCall call(forcingFolders, EIO);
    EXPECT_FALSE(ExportJournal::create(folder(), someService(), someChoices(), someImages(), {}, error_));
    EXPECT_EQ(error_, QString::fromLocal8Bit(std::strerror(EIO)));
    EXPECT_TRUE(QDir(folder()).entryList(QDir::Files | QDir::Hidden).isEmpty());
}

TEST_F(Journal, IsKeptWhereTheFileSystemCantForceFolders) {
    for (const int error : {EINVAL, ENOTSUP}) {
        const FailingCall call(forcingFolders, error);
        const auto journal = create();
        ASSERT_TRUE(journal);
        EXPECT_TRUE(QFile::exists(journal->path()));
        EXPECT_TRUE(journal->discard());
        EXPECT_FALSE(QFile::exists(journal->path()));
        EXPECT_EQ(failedCalls, 2);
    }
}

TEST_F(Journal, DoesNotForgetThatSomethingCouldNotBeForcedToTheDisk) {
    for (const bool isForcedByTheThread : {false, true}) {
        auto journal = begin(1);
        prepare(*journal, 0);
        {
            const FailingCall call(forcingFiles, EIO);
            if (isForcedByTheThread)
                upload(*journal, 0);
            else
                journal->processingConfirmed();
            EXPECT_TRUE(test_support::waitUntil([] { return failedCalls > 0; }));
        }
        journal->attemptEnded({});
        ASSERT_TRUE(journal->failure());
        EXPECT_EQ(*journal->failure(), QString::fromLocal8Bit(std::strerror(EIO)));
    }
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
    EXPECT_FALSE(ExportJournal::create(folder(), someService(), someChoices(), someImages(), {}, error_));
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
        EXPECT_FALSE(journal->failure());
        journal.reset();
        EXPECT_EQ(outcomes(reopen(path)->record()), outcomes(expected));
        QDir(folder()).removeRecursively();
    }
}

TEST_F(Journal, SaysThatADiskIsFullAsLongAsItIs) {
    auto journal = begin(1);
    prepare(*journal, 0);
    {
        const FullDisk full(QFileInfo(journal->path()).size());
        upload(*journal, 0);
        EXPECT_TRUE(journal->failure());
        journal->attemptEnded({});
        EXPECT_TRUE(journal->failure());
    }
    {
        const FailingCall call(forcingFiles, EIO);
        journal->processingConfirmed();
    }
    EXPECT_TRUE(journal->failure());
}

TEST_F(Journal, KeepsRoomAgainOnceItsDamagedEndIsCutOff) {
    constexpr int kImages = 1000;
    const auto keptRoom = [](const QString& path) {
        struct stat status {};
        EXPECT_EQ(stat(QFile::encodeName(path).constData(), &status), 0);
        return status.st_blocks * 512 - status.st_size;
    };
    auto journal = create(someImages(kImages));
    const QString path = journal->path();
    journal.reset();
    // Not every file system can keep room.
    const auto expected = std::min<blkcnt_t>(keptRoom(path), kImages * 512);
    write(path, contents(path) + "{\"upl");
    EXPECT_LE(keptRoom(path), expected);
    reopen(path);
    EXPECT_GE(keptRoom(path), expected);
}
