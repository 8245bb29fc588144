#include "host/cli/PasswordSource.h"

#include "host/cli/Output.h"
#include "host/cli/PrintableText.h"
#include "platform/Secret.h"

#include <QtCore/QStringDecoder>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

namespace host::cli {

namespace {

constexpr qsizetype kLongestPassword = 4096;
constexpr const char* kControllingTerminal = "/dev/tty";

/// Bytes that nobody finds in memory afterwards. They never move: the room for them is there from the start.
class SecretBytes {
public:
    SecretBytes() { bytes_.reserve(kLongestPassword); }
    ~SecretBytes() { platform::wipe(bytes_); }
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;
    QByteArray* operator->() { return &bytes_; }
    const QByteArray& operator*() const { return bytes_; }

private:
    QByteArray bytes_;
};

class FileDescriptor {
public:
    explicit FileDescriptor(int descriptor)
        : descriptor_(descriptor) {}
    ~FileDescriptor() {
        if (descriptor_ > STDERR_FILENO)
            close(descriptor_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return descriptor_; }

private:
    const int descriptor_;
};

/// Keeps a terminal from showing what is typed. Suspending is off too: the shell would be left without an
/// echo.
class SilentTerminal {
public:
    explicit SilentTerminal(int terminal)
        : terminal_(terminal) {
        isTerminal_ = tcgetattr(terminal_, &before_) == 0;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_cc[VSUSP] = _POSIX_VDISABLE;
        if (isTerminal_)
            tcsetattr(terminal_, TCSAFLUSH, &silent);
    }
    ~SilentTerminal() {
        if (isTerminal_)
            tcsetattr(terminal_, TCSAFLUSH, &before_);
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    const int terminal_;
    termios before_{};
    bool isTerminal_ = false;
};

enum class Readiness { Ready, Interrupted };

Readiness waitFor(int input, int interruption) {
    std::array<pollfd, 2> watched{{{input, POLLIN, 0}, {interruption, POLLIN, 0}}};
    while (poll(watched.data(), watched.size(), -1) < 0 && errno == EINTR) {
    }
    return watched[1].revents ? Readiness::Interrupted : Readiness::Ready;
}

QString systemMessage(int number) {
    return QString::fromLocal8Bit(strerrordesc_np(number));
}

Password decoded(const QByteArray& line) {
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString password = decoder(line);
    if (decoder.hasError()) {
        platform::wipe(password);
        return NoPassword{QStringLiteral("the password is not valid UTF-8")};
    }
    if (password.isEmpty())
        return NoPassword{QStringLiteral("the password is empty")};
    return password;
}

/// Reads byte by byte: what follows the line belongs to somebody else.
Password firstLine(int input, int interruption) {
    SecretBytes line;
    while (true) {
        if (waitFor(input, interruption) == Readiness::Interrupted)
            return Interrupted{};
        char byte = 0;
        const ssize_t count = read(input, &byte, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count < 0)
            return NoPassword{QStringLiteral("the password can't be read: ") + systemMessage(errno)};
        if (count == 0 || byte == '\n')
            break;
        if (line->size() == kLongestPassword)
            return NoPassword{QStringLiteral("the password is longer than %1 bytes").arg(kLongestPassword)};
        line->append(byte);
    }
    if (line->endsWith('\r'))
        line->chop(1);
    return decoded(*line);
}

/// The terminal of the session, else standard input where that is one; -1 where there is none.
int terminal() {
    const int controlling = open(kControllingTerminal, O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (controlling >= 0)
        return controlling;
    return isatty(STDIN_FILENO) ? STDIN_FILENO : -1;
}

} // namespace

Password passwordFromFile(const QByteArray& file, int interruption) {
    if (file == "-")
        return firstLine(STDIN_FILENO, interruption);
    const FileDescriptor input(open(file.constData(), O_RDONLY | O_CLOEXEC));
    if (input.get() < 0) {
        return NoPassword{QStringLiteral("the password file %1 can't be read: %2")
                              .arg(QString::fromUtf8(file), systemMessage(errno))};
    }
    return firstLine(input.get(), interruption);
}

Password passwordFromTerminal(const QString& account, int interruption) {
    const FileDescriptor input(terminal());
    if (input.get() < 0) {
        return NoPassword{
            QStringLiteral("no password of %1 is remembered, and there is no terminal to ask for it; "
                           "use --password-file")
                .arg(account)};
    }
    const int output = input.get() == STDIN_FILENO ? STDERR_FILENO : input.get();
    Password password = NoPassword{};
    {
        const SilentTerminal silence(input.get());
        writeAll(output, QStringLiteral("Password of %1: ").arg(printable(account)).toUtf8());
        password = firstLine(input.get(), interruption);
    }
    writeAll(output, "\n");
    return password;
}

} // namespace host::cli
