#include "bench/FTPSink.h"

#include <sys/socket.h>

namespace bench {

using test_support::ServerSocket;

namespace {

constexpr std::size_t kLineRead = 4096;
constexpr std::size_t kDataRead = std::size_t{1} << 20;

/// Takes all bytes up to the end, and copies none of them (tcp(7), MSG_TRUNC).
void discardAll(const ServerSocket& data) {
    while (::recv(data.descriptor(), nullptr, kDataRead, MSG_TRUNC) > 0) {
    }
}

} // namespace

FTPSink::FTPSink()
    : listening_(ServerSocket::listenOnLoopback(false))
    , thread_([this] { serve(); }) {}

FTPSink::~FTPSink() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        if (control_)
            control_->interrupt();
    }
    listening_->interrupt();
    thread_.join();
}

void FTPSink::serve() {
    while (auto control = listening_->accept({})) {
        {
            const std::lock_guard lock(mutex_);
            if (isStopping_)
                return;
            control_ = std::move(control);
        }
        converse();
        const std::lock_guard lock(mutex_);
        control_.reset();
    }
}

void FTPSink::converse() {
    control_->send("220 Ready\r\n");
    QByteArray unread;
    for (;;) {
        const QByteArray more = control_->read(kLineRead);
        if (more.isEmpty())
            return;
        unread += more;
        for (auto end = unread.indexOf("\r\n"); end >= 0; end = unread.indexOf("\r\n")) {
            control_->send(reply(unread.left(4).trimmed()) + "\r\n");
            unread.remove(0, end + 2);
        }
    }
}

QByteArray FTPSink::reply(const QByteArray& command) {
    if (command == "USER")
        return "331 Password";
    if (command == "PASS")
        return "230 Logged in";
    if (command == "PWD")
        return "257 \"/\"";
    if (command == "TYPE")
        return "200 Type set";
    if (command == "EPSV") {
        passive_ = ServerSocket::listenOnLoopback(false);
        return "229 Extended passive (|||" + QByteArray::number(passive_->port()) + "|)";
    }
    if (command == "STOR" && passive_)
        return receiveFile();
    return "502 Not implemented";
}

QByteArray FTPSink::receiveFile() {
    control_->send("150 Send it\r\n");
    if (const auto data = passive_->accept({}))
        discardAll(*data);
    passive_.reset();
    return "226 Got it";
}

} // namespace bench
