#pragma once

#include "tests/support/ServerSocket.h"

#include <mutex>
#include <thread>

namespace bench {

/// An FTP server on loopback, on a thread of its own, that lets everybody log in, confirms every file and
/// keeps none of its bytes: it takes as little as a server can, so that the client's cost shows. One control
/// connection at a time.
class FTPSink {
public:
    FTPSink();
    ~FTPSink();
    FTPSink(const FTPSink&) = delete;
    FTPSink& operator=(const FTPSink&) = delete;

    std::uint16_t port() const { return listening_->port(); }

private:
    void serve();
    void converse();
    QByteArray reply(const QByteArray& command);
    QByteArray receiveFile();

    const std::unique_ptr<test_support::ServerSocket> listening_;
    std::mutex mutex_; ///< Guards `isStopping_`, and `control_` against an end while it is interrupted.
    bool isStopping_ = false;
    std::unique_ptr<test_support::ServerSocket> control_;
    std::unique_ptr<test_support::ServerSocket> passive_;
    std::thread thread_;
};

} // namespace bench
