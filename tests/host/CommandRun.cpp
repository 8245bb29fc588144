#include "tests/host/CommandRun.h"

#include "tests/support/Waiting.h"

#include <QtCore/QJsonDocument>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <string>

namespace {

const QString kProgram = QStringLiteral(QUILLMARK_BUILD_DIR "/host/cli/quillmark-export");

int deadline() {
    return static_cast<int>(std::chrono::milliseconds(test_support::kDeadline).count());
}

} // namespace

CommandRun::CommandRun(const QStringList& arguments, const QByteArray& input) {
    // Whoever runs the tests may sit at a terminal, which is not the command's business.
    process_.setChildProcessModifier([] { setsid(); });
    process_.start(kProgram, arguments);
    process_.write(input);
    process_.closeWriteChannel();
    process_.waitForStarted();
}

void CommandRun::sendSignal(int number) {
    kill(static_cast<pid_t>(process_.processId()), number);
}

int CommandRun::wait() {
    const bool ended = process_.waitForFinished(deadline());
    output_ = process_.readAllStandardOutput();
    errors_ = process_.readAllStandardError();
    if (!ended)
        process_.kill();
    return ended && process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
}

std::vector<QByteArray> CommandRun::lines() const {
    const QList<QByteArray> all = output_.split('\n');
    // The last line has an end like all others.
    return {all.begin(), all.end() - 1};
}

std::vector<QJsonObject> CommandRun::events(const QString& event) const {
    std::vector<QJsonObject> found;
    for (const QByteArray& line : lines()) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        if (object.value(QStringLiteral("event")) == event)
            found.push_back(object);
    }
    return found;
}

TerminalRun::TerminalRun(const QStringList& arguments, int width) {
    std::vector<std::string> texts{kProgram.toStdString()};
    for (const QString& argument : arguments)
        texts.push_back(argument.toStdString());
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);

    const winsize size{24, static_cast<unsigned short>(width), 0, 0};
    process_ = forkpty(&terminal_, nullptr, nullptr, &size);
    if (process_ == 0) {
        execv(pointers[0], pointers.data());
        _exit(127);
    }
}

TerminalRun::~TerminalRun() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(terminal_);
}

bool TerminalRun::readMore(std::chrono::milliseconds patience) {
    pollfd watched{terminal_, POLLIN, 0};
    if (poll(&watched, 1, static_cast<int>(patience.count())) <= 0)
        return false;
    char bytes[4096];
    const ssize_t count = read(terminal_, bytes, sizeof(bytes));
    if (count > 0)
        shown_.append(bytes, count);
    return count > 0;
}

bool TerminalRun::waitFor(const QByteArray& text) {
    while (!shown_.contains(text)) {
        if (!readMore(test_support::kDeadline))
            return false;
    }
    return true;
}

void TerminalRun::type(const QByteArray& keys) {
    [[maybe_unused]] const ssize_t count =
        write(terminal_, keys.constData(), static_cast<std::size_t>(keys.size()));
}

bool TerminalRun::echoes() const {
    termios settings{};
    return tcgetattr(terminal_, &settings) == 0 && (settings.c_lflag & ECHO);
}

int TerminalRun::wait() {
    while (readMore(test_support::kDeadline)) {
    }
    int status = 0;
    const int ended = waitpid(process_, &status, 0);
    process_ = -1;
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
