#include "tests/platform/FTPServerProcess.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <vector>

namespace ftp_stream_tests {

namespace {

using Pipe = std::array<int, 2>; ///< The end to read from and the end to write to.

Pipe makePipe() {
    Pipe ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe for the server");
    return ends;
}

pid_t spawn(const QStringList& command, int input, int output) {
    std::vector<QByteArray> texts;
    for (const QString& argument : command)
        texts.push_back(QFile::encodeName(argument));
    std::vector<char*> arguments;
    for (QByteArray& text : texts)
        arguments.push_back(text.data());
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t process = -1;
    const int failure = ::posix_spawn(&process, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        throw std::runtime_error("the server can't be started");
    return process;
}

/// Up to the end of the line, or of all.
QByteArray readLine(int descriptor) {
    QByteArray line;
    char byte = 0;
    while (::read(descriptor, &byte, 1) == 1 && byte != '\n')
        line.append(byte);
    return line;
}

} // namespace

FTPServerProcess::FTPServerProcess(const QStringList& command) {
    const Pipe input = makePipe();
    const Pipe output = makePipe();
    process_ = spawn(command, input[0], output[1]);
    ::close(input[0]);
    ::close(output[1]);
    input_ = input[1];
    port_ = readLine(output[0]).toInt();
    ::close(output[0]);
}

FTPServerProcess::~FTPServerProcess() {
    ::close(input_);
    ::waitpid(process_, nullptr, 0);
}

} // namespace ftp_stream_tests
