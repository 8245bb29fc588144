#pragma once

#include "tests/support/ServerSocket.h"
#include "tests/support/TestCertificates.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace test_support {

/// A request as it came: "GET /path HTTP/1.1" and the header lines.
struct WebRequest {
    QByteArray line;
    QList<QByteArray> headers;

    /// Path and query, as they stand in the request line.
    QByteArray target() const { return line.split(' ').value(1); }
};

/// What the server does with one request.
struct WebAnswer {
    /// An answer of `status` with a body of known length.
    static WebAnswer of(int status, const QByteArray& body, const QList<QByteArray>& headers = {});
    static WebAnswer ok(const QByteArray& body) { return of(200, body); }
    /// An answer with a chunk for each of `chunks`, with or without the last chunk that ends it.
    static WebAnswer chunked(const QList<QByteArray>& chunks, bool isComplete = true);
    static WebAnswer redirect(int status, const QByteArray& location);

    QByteArray bytes;                       ///< All that is sent, as it goes to the wire.
    std::shared_future<void> gate;          ///< Waited for, where there is one, before anything is sent.
    std::chrono::milliseconds delay{0};     ///< Likewise passes.
    std::chrono::milliseconds bytePause{0}; ///< Between one byte and the next, where not 0.
    bool isEndless = false;                 ///< Sends the last 64 KiB again until the client is gone.
    bool isSilentAfterwards =
        false;             ///< Keeps the connection without a further byte until the client is gone.
    std::vector<Cut> cuts; ///< What ends the connection afterwards, one after the other.
};

/// A web server within the test: HTTP/1.1 over TLS on the loopback address, a thread a connection.
class ScriptedWebServer {
public:
    /// Called for each request, on its connection's thread.
    using Script = std::function<WebAnswer(const WebRequest&)>;

    explicit ScriptedWebServer(const ServerCertificate& certificate);
    ~ScriptedWebServer();
    ScriptedWebServer(const ScriptedWebServer&) = delete;
    ScriptedWebServer& operator=(const ScriptedWebServer&) = delete;

    /// Without a script every request is answered 404.
    void setScript(Script script);

    std::uint16_t port() const { return listener_->port(); }
    /// The entry of `Transport::connectTo` that leads `host` here.
    QString connectTo(const QString& host) const;

    std::vector<WebRequest> requests() const;
    QStringList requestLines() const;
    /// Connections whose TLS handshake succeeded, and those where it failed.
    int connectionCount() const;
    int failedHandshakes() const;
    /// Connections that the server has not ended yet.
    int openConnections() const;
    /// The most requests that were ever in work at the same time.
    int largestConcurrency() const;

private:
    void acceptConnections();
    void forget(const std::shared_ptr<ServerSocket>& socket);
    void serve(ServerSocket& socket);
    std::optional<WebRequest> readRequest(ServerSocket& socket, QByteArray& buffer) const;
    bool send(ServerSocket& socket, const WebAnswer& answer) const;
    WebAnswer answerTo(const WebRequest& request);

    struct FreeContext {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    const std::unique_ptr<SSL_CTX, FreeContext> context_;
    const std::unique_ptr<ServerSocket> listener_;
    mutable std::mutex mutex_;
    Script script_;
    std::vector<WebRequest> requests_;
    int connectionCount_ = 0;
    int failedHandshakes_ = 0;
    int inWork_ = 0;
    int largestConcurrency_ = 0;
    bool isEnding_ = false;
    std::vector<std::shared_ptr<ServerSocket>> sockets_;
    std::vector<std::thread> connections_;
    std::thread acceptor_;
};

} // namespace test_support
