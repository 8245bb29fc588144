#pragma once

#include "tests/support/ScriptedFTPServer.h"
#include "tests/support/ServerSocket.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

namespace test_support {

/// What the connections of one scripted server share.
struct FTPServerState {
    struct FreeContext {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    /// A line and the connection that it came over.
    struct Line {
        int connection;
        QByteArray text;
    };

    ScriptedFTPServer::Options options;
    std::unique_ptr<SSL_CTX, FreeContext> tls;

    std::mutex mutex; ///< Guards all below.
    std::condition_variable stopped;
    bool isStopping = false;
    std::set<ServerSocket*> sockets; ///< To interrupt when the server stops.
    std::map<QByteArray, std::map<int, FTPFault>> faults;
    std::map<QByteArray, int> stepCounts;
    std::map<int, FTPDataFault> dataFaults;
    int uploadCount = 0;
    QByteArray passiveAddress = "127,0,0,1";
    std::chrono::milliseconds pace{0};
    std::size_t pieceSize = 64 * 1024;
    QList<Line> lines;
    int connections = 0;
    int openConnections = 0;
    QByteArray wire;
    std::map<QByteArray, QByteArray> files;
    QList<QByteArray> folders;
    std::uint64_t receivedBytes = 0;

    /// Waits that long; false where the server stops first.
    bool pause(std::chrono::milliseconds duration);
    FTPFault takeFault(const QByteArray& step);
    std::optional<FTPDataFault> takeDataFault();
    ServerSocket::Tap tap();
};

/// A socket that the server interrupts when it stops.
class InterruptibleSocket {
public:
    InterruptibleSocket() = default;
    InterruptibleSocket(std::shared_ptr<FTPServerState> state, std::unique_ptr<ServerSocket> socket);
    InterruptibleSocket(InterruptibleSocket&&) = default;
    InterruptibleSocket& operator=(InterruptibleSocket&& other) noexcept;
    ~InterruptibleSocket();

    explicit operator bool() const { return socket_ != nullptr; }
    ServerSocket* operator->() const { return socket_.get(); }

private:
    std::shared_ptr<FTPServerState> state_;
    std::unique_ptr<ServerSocket> socket_;
};

/// One control connection and the uploads that belong to it.
class FTPConversation {
public:
    FTPConversation(std::shared_ptr<FTPServerState> state, std::unique_ptr<ServerSocket> control, int number);
    ~FTPConversation();
    FTPConversation(const FTPConversation&) = delete;
    FTPConversation& operator=(const FTPConversation&) = delete;

    /// Talks until either side ends it.
    void run();

private:
    void play(const QByteArray& step, const std::function<QByteArray()>& work);
    void say(const QByteArray& reply, bool inPieces = false);
    std::optional<QByteArray> readLine();
    void obey(const QByteArray& line);
    QByteArray reply(const QByteArray& command, const QByteArray& argument);
    void listenSilently();

    QByteArray logIn(const QByteArray& password);
    QByteArray goOverToTLS();
    QByteArray enterPassiveMode(bool extended);
    QByteArray makeFolder(const QByteArray& path);
    QByteArray beginUpload(const QByteArray& path);

    void receive(const QByteArray& path);
    InterruptibleSocket acceptData();
    bool secure(InterruptibleSocket& data);
    void waitForEnd(const InterruptibleSocket& data);
    void playDataFault(const FTPDataFault& fault, InterruptibleSocket& data);

    const std::shared_ptr<FTPServerState> state_;
    const int number_;
    InterruptibleSocket control_;
    InterruptibleSocket passive_;
    QByteArray unread_;
    QByteArray userName_;
    QByteArray answeredAhead_;         ///< The command that needs no answer any more.
    std::function<void()> afterwards_; ///< What a command does once its answer is said.
    bool isLoggedIn_ = false;
    bool isDataPrivate_ = false;
    bool hasEnded_ = false;
};

} // namespace test_support
