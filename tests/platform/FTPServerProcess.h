#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <sys/types.h>

namespace ftp_stream_tests {

/// A program that serves on a port which it prints first of all, until its standard input ends.
///
/// Not a QProcess: its child borrows the calling thread's memory until it has its own program, and what
/// ThreadSanitizer keeps of the thread would be wrong from then on.
class FTPServerProcess {
public:
    /// The program's path and its arguments. Throws std::runtime_error where it can't be started.
    explicit FTPServerProcess(const QStringList& command);
    ~FTPServerProcess();
    FTPServerProcess(const FTPServerProcess&) = delete;
    FTPServerProcess& operator=(const FTPServerProcess&) = delete;

    int port() const { return port_; }

private:
    pid_t process_ = -1;
    int input_ = -1; ///< The end that we hold.
    int port_ = 0;
};

} // namespace ftp_stream_tests
