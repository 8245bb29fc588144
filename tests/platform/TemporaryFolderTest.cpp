#include "platform/TemporaryFolder.h"

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Another process, which has asked for its folder with `parent` as $TMPDIR and lives until it is killed.
class Process {
public:
    explicit Process(
        const QString& parent, const std::function<void()>& prepare = [] {}) {
        int channel[2];
        if (pipe(channel) != 0)
            return;
        id_ = fork();
        if (id_ == 0) {
            qputenv("TMPDIR", QFile::encodeName(parent));
            prepare();
            const QByteArray path = QFile::encodeName(platform::temporaryFolder());
            const bool isSame = QFile::encodeName(platform::temporaryFolder()) == path;
            struct stat status {};
            stat(path.constData(), &status);
            const QByteArray answer = path + '\n' + QByteArray::number(status.st_mode & 07777, 8) + '\n' +
                                      (isSame ? "same" : "different") + '\n';
            if (write(channel[1], answer.constData(), std::size_t(answer.size())) < 0)
                _exit(1);
            close(channel[1]);
            for (;;)
                pause();
        }
        close(channel[1]);
        QFile answer;
        if (answer.open(channel[0], QIODevice::ReadOnly, QFile::AutoCloseHandle)) {
            folder = QFile::decodeName(answer.readLine().trimmed());
            mode = answer.readLine().trimmed();
            secondAnswer = answer.readLine().trimmed();
        }
    }
    ~Process() { kill(); }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void kill() {
        if (id_ > 0) {
            ::kill(id_, SIGKILL);
            waitpid(id_, nullptr, 0);
        }
        id_ = -1;
    }

    QString folder;
    QByteArray mode;
    QByteArray secondAnswer;

private:
    pid_t id_ = -1;
};

class TemporaryFolder : public testing::Test {
protected:
    QString parent() const { return folder_.path(); }
    QString numbered(int number) const {
        const QString first = QStringLiteral("%1/quillmark-%2").arg(parent()).arg(geteuid());
        return number == 1 ? first : QStringLiteral("%1-%2").arg(first).arg(number);
    }
    void touch(const QString& path) const {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    }

private:
    const QTemporaryDir folder_;
};

TEST_F(TemporaryFolder, IsNamedAfterTheUserAndPrivate) {
    const Process process(parent());
    EXPECT_EQ(process.folder, numbered(1));
    EXPECT_EQ(process.mode, "700");
}

TEST_F(TemporaryFolder, IsTheSameAtEachCall) {
    const Process process(parent());
    EXPECT_EQ(process.secondAnswer, "same");
    EXPECT_FALSE(QFile::exists(numbered(2)));
}

TEST_F(TemporaryFolder, ParentMayHaveAnyName) {
    const QString odd = parent() + QStringLiteral("/100%2 %1");
    ASSERT_TRUE(QDir().mkpath(odd));
    const Process first(odd);
    const Process second(odd);
    EXPECT_TRUE(first.folder.startsWith(odd + QLatin1Char('/'))) << first.folder.toStdString();
    EXPECT_EQ(second.folder, first.folder + QStringLiteral("-2"));
}

TEST_F(TemporaryFolder, EachProcessHasItsOwn) {
    const Process first(parent());
    const Process second(parent());
    const Process third(parent());
    EXPECT_EQ(first.folder, numbered(1));
    EXPECT_EQ(second.folder, numbered(2));
    EXPECT_EQ(third.folder, numbered(3));
}

TEST_F(TemporaryFolder, FolderOfAKilledProcessIsTakenAgainAsItIs) {
    Process first(parent());
    const Process second(parent());
    touch(first.folder + QStringLiteral("/left behind"));
    first.kill();
    const Process third(parent());
    EXPECT_EQ(third.folder, numbered(1));
    EXPECT_TRUE(QFile::exists(third.folder + QStringLiteral("/left behind")));
}

TEST_F(TemporaryFolder, RemovedFolderIsMadeAnew) {
    const Process first(parent());
    ASSERT_TRUE(QDir(first.folder).removeRecursively());
    const Process second(parent());
    EXPECT_EQ(second.folder, numbered(1));
    EXPECT_TRUE(QFile::exists(second.folder));
}

TEST_F(TemporaryFolder, LinkIsPassedOverAndItsTargetLeftAlone) {
    const QTemporaryDir trap;
    ASSERT_EQ(chmod(QFile::encodeName(trap.path()).constData(), 0755), 0);
    ASSERT_TRUE(QFile::link(trap.path(), numbered(1)));
    EXPECT_EQ(Process(parent()).folder, numbered(2));
    EXPECT_TRUE(QFile::permissions(trap.path()) & QFile::ReadOther);
}

TEST_F(TemporaryFolder, FileIsPassedOver) {
    touch(numbered(1));
    EXPECT_EQ(Process(parent()).folder, numbered(2));
}

TEST_F(TemporaryFolder, OpenFolderOfTheUserIsClosedToOthers) {
    ASSERT_EQ(mkdir(QFile::encodeName(numbered(1)).constData(), 0777), 0);
    ASSERT_EQ(chmod(QFile::encodeName(numbered(1)).constData(), 0777), 0);
    const Process process(parent());
    EXPECT_EQ(process.folder, numbered(1));
    EXPECT_EQ(process.mode, "700");
}

/// Makes an existing folder somebody else's, for this process at least. Only root can give a folder away;
/// others put one of root's in its place, in a name space of their own.
bool makeForeign(const QByteArray& folder) {
    if (geteuid() == 0)
        return chown(folder.constData(), 65534, 65534) == 0;
    const QByteArray user = QByteArray::number(geteuid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    QFile map(QStringLiteral("/proc/self/uid_map"));
    return map.open(QIODevice::WriteOnly) && map.write(user + ' ' + user + " 1") > 0 && map.flush() &&
           mount("/usr", folder.constData(), nullptr, MS_BIND, nullptr) == 0;
}

TEST_F(TemporaryFolder, FolderOfSomebodyElseIsPassedOver) {
    const QByteArray folder = QFile::encodeName(numbered(1));
    ASSERT_EQ(mkdir(folder.constData(), 0777), 0);
    const Process process(parent(), [&folder] {
        if (!makeForeign(folder))
            _exit(1);
    });
    EXPECT_EQ(process.folder, numbered(2));
    EXPECT_EQ(process.mode, "700");
}

TEST_F(TemporaryFolder, TakenNamesDoNotLeaveAProcessWithoutAFolder) {
    for (int number = 1; number <= 200; ++number)
        touch(numbered(number));
    const Process first(parent());
    const Process second(parent());
    EXPECT_TRUE(first.folder.startsWith(numbered(1) + QLatin1Char('-'))) << first.folder.toStdString();
    EXPECT_EQ(first.mode, "700");
    EXPECT_NE(first.folder, second.folder);
}

TEST_F(TemporaryFolder, UnusableTMPDIRMakesItTheSystems) {
    const Process process(parent() + QStringLiteral("/missing"));
    EXPECT_TRUE(process.folder.startsWith(QStringLiteral("/tmp/quillmark-"))) << process.folder.toStdString();
    EXPECT_EQ(process.mode, "700");
    QDir().rmdir(process.folder);
}

TEST_F(TemporaryFolder, RelativeTMPDIRGivesAnAbsolutePath) {
    const Process process(QStringLiteral("."), [this] { ASSERT_TRUE(QDir::setCurrent(parent())); });
    EXPECT_EQ(process.folder, numbered(1));
}

} // namespace
