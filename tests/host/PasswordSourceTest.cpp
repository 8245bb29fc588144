#include "host/cli/PasswordSource.h"

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <thread>

using namespace host::cli;

namespace {

/// An end of a pipe that nobody has written to: no interruption.
class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe2(ends_.data(), O_CLOEXEC), 0); }
    ~Pipe() {
        close(ends_[0]);
        close(ends_[1]);
    }
    int readEnd() const { return ends_[0]; }
    void write() const { EXPECT_EQ(::write(ends_[1], "!", 1), 1); }

private:
    std::array<int, 2> ends_{};
};

class PasswordFile : public testing::Test {
protected:
    Password read(const QByteArray& contents) {
        QFile file(folder_.filePath(QStringLiteral("password")));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(contents) == contents.size());
        file.close();
        return passwordFromFile(QFile::encodeName(file.fileName()), interruption_.readEnd());
    }
    static QString text(const Password& password) {
        const auto* found = std::get_if<QString>(&password);
        return found ? *found : QStringLiteral("(none)");
    }
    static std::string reason(const Password& password) {
        const auto* none = std::get_if<NoPassword>(&password);
        return none ? none->reason.toStdString() : std::string("(there is one)");
    }

    QTemporaryDir folder_;
    Pipe interruption_;
};

} // namespace

TEST_F(PasswordFile, IsReadUpToTheEndOfItsFirstLine) {
    EXPECT_EQ(text(read("secret\nmore\n")), QStringLiteral("secret"));
    EXPECT_EQ(text(read("secret")), QStringLiteral("secret"));
    EXPECT_EQ(text(read("secret\r\n")), QStringLiteral("secret"));
    EXPECT_EQ(text(read(" blanks count \n")), QStringLiteral(" blanks count "));
}

TEST_F(PasswordFile, IsUTF8) {
    EXPECT_EQ(text(read("pässwörd 写\n")), QString::fromUtf8("pässwörd 写"));
    EXPECT_EQ(reason(read("p\xe4ss\n")), "the password is not valid UTF-8");
}

TEST_F(PasswordFile, MustNotBeEmptyOrEndless) {
    EXPECT_EQ(reason(read("")), "the password is empty");
    EXPECT_EQ(reason(read("\nsecret\n")), "the password is empty");
    EXPECT_EQ(text(read(QByteArray(4096, 'x'))).size(), 4096);
    EXPECT_EQ(reason(read(QByteArray(4097, 'x'))), "the password is longer than 4096 bytes");
}

TEST_F(PasswordFile, ThatIsMissingIsNamed) {
    EXPECT_EQ(reason(passwordFromFile("/nowhere/password", interruption_.readEnd())),
              "the password file /nowhere/password can't be read: No such file or directory");
    EXPECT_NE(reason(passwordFromFile(QFile::encodeName(folder_.path()), interruption_.readEnd())),
              "(there is one)");
}

TEST_F(PasswordFile, IsNoLongerWaitedForWhenTheUserGivesUp) {
    const QByteArray path = QFile::encodeName(folder_.filePath(QStringLiteral("fifo")));
    ASSERT_EQ(mkfifo(path.constData(), 0600), 0);
    // A writer that stays silent.
    const int writer = open(path.constData(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    std::thread user([this] { interruption_.write(); });
    EXPECT_TRUE(std::holds_alternative<Interrupted>(passwordFromFile(path, interruption_.readEnd())));
    user.join();
    close(writer);
}
