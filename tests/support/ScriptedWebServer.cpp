#include "tests/support/ScriptedWebServer.h"

#include <csignal>
#include <stdexcept>

namespace test_support {

namespace {

constexpr qsizetype kRepeatedLength = 64 * 1024;
constexpr std::size_t kReadLength = 16 * 1024;

/// A client that is gone must not end the test with SIGPIPE.
void ignoreBrokenPipes() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

SSL_CTX* makeContext(const ServerCertificate& certificate) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    if (SSL_CTX_use_certificate_chain_file(context, certificate.certificateFile.toLocal8Bit().constData()) !=
            1 ||
        SSL_CTX_use_PrivateKey_file(context, certificate.keyFile.toLocal8Bit().constData(),
                                    SSL_FILETYPE_PEM) != 1) {
        SSL_CTX_free(context);
        throw std::runtime_error("the server's certificate can't be used");
    }
    return context;
}

QByteArray head(int status, const QList<QByteArray>& headers) {
    QByteArray text = "HTTP/1.1 " + QByteArray::number(status) + " Scripted\r\n";
    for (const QByteArray& header : headers)
        text += header + "\r\n";
    return text + "\r\n";
}

} // namespace

WebAnswer WebAnswer::of(int status, const QByteArray& body, const QList<QByteArray>& headers) {
    WebAnswer answer;
    answer.bytes =
        head(status, headers + QList<QByteArray>{"Content-Length: " + QByteArray::number(body.size())}) +
        body;
    return answer;
}

WebAnswer WebAnswer::chunked(const QList<QByteArray>& chunks, bool isComplete) {
    WebAnswer answer;
    answer.bytes = head(200, {"Transfer-Encoding: chunked"});
    for (const QByteArray& chunk : chunks)
        answer.bytes += QByteArray::number(chunk.size(), 16) + "\r\n" + chunk + "\r\n";
    if (isComplete)
        answer.bytes += "0\r\n\r\n";
    else
        answer.cuts = {Cut::Finish};
    return answer;
}

WebAnswer WebAnswer::redirect(int status, const QByteArray& location) {
    return of(status, "moved", {"Location: " + location});
}

ScriptedWebServer::ScriptedWebServer(const ServerCertificate& certificate)
    : context_(makeContext(certificate))
    , listener_(ServerSocket::listenOnLoopback(false)) {
    acceptor_ = std::thread([this] { acceptConnections(); });
}

ScriptedWebServer::~ScriptedWebServer() {
    {
        const std::lock_guard lock(mutex_);
        isEnding_ = true;
        for (const auto& socket : sockets_)
            socket->interrupt();
    }
    listener_->interrupt();
    acceptor_.join();
    for (std::thread& connection : connections_)
        connection.join();
}

void ScriptedWebServer::setScript(Script script) {
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

QString ScriptedWebServer::connectTo(const QString& host) const {
    return QStringLiteral("%1:443:127.0.0.1:%2").arg(host).arg(port());
}

std::vector<WebRequest> ScriptedWebServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

QStringList ScriptedWebServer::requestLines() const {
    QStringList lines;
    for (const WebRequest& request : requests())
        lines.append(QString::fromLatin1(request.line));
    return lines;
}

int ScriptedWebServer::connectionCount() const {
    const std::lock_guard lock(mutex_);
    return connectionCount_;
}

int ScriptedWebServer::failedHandshakes() const {
    const std::lock_guard lock(mutex_);
    return failedHandshakes_;
}

int ScriptedWebServer::openConnections() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(sockets_.size());
}

int ScriptedWebServer::largestConcurrency() const {
    const std::lock_guard lock(mutex_);
    return largestConcurrency_;
}

void ScriptedWebServer::acceptConnections() {
    ignoreBrokenPipes();
    while (std::shared_ptr<ServerSocket> socket = listener_->accept({})) {
        const std::lock_guard lock(mutex_);
        if (isEnding_)
            return;
        sockets_.push_back(socket);
        connections_.emplace_back([this, socket = std::move(socket)] {
            ignoreBrokenPipes();
            serve(*socket);
            socket->interrupt();
            // The last goodbye is said on this thread.
            forget(socket);
        });
    }
}

void ScriptedWebServer::forget(const std::shared_ptr<ServerSocket>& socket) {
    const std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
}

void ScriptedWebServer::serve(ServerSocket& socket) {
    const bool isConnected = socket.startTLS(context_.get());
    {
        const std::lock_guard lock(mutex_);
        ++(isConnected ? connectionCount_ : failedHandshakes_);
    }
    QByteArray buffer;
    while (const auto request = isConnected ? readRequest(socket, buffer) : std::nullopt) {
        const WebAnswer answer = answerTo(*request);
        const bool goesOn = send(socket, answer);
        {
            const std::lock_guard lock(mutex_);
            --inWork_;
        }
        if (!goesOn)
            return;
    }
}

std::optional<WebRequest> ScriptedWebServer::readRequest(ServerSocket& socket, QByteArray& buffer) const {
    qsizetype end = -1;
    while ((end = buffer.indexOf("\r\n\r\n")) < 0) {
        const QByteArray bytes = socket.read(kReadLength);
        if (bytes.isEmpty())
            return std::nullopt;
        buffer += bytes;
    }
    QList<QByteArray> lines;
    for (const QByteArray& line : buffer.left(end).split('\n'))
        lines.append(line.endsWith('\r') ? line.chopped(1) : line);
    buffer.remove(0, end + 4);
    WebRequest request{lines.takeFirst(), lines};
    return request;
}

WebAnswer ScriptedWebServer::answerTo(const WebRequest& request) {
    Script script;
    {
        const std::lock_guard lock(mutex_);
        requests_.push_back(request);
        largestConcurrency_ = std::max(largestConcurrency_, ++inWork_);
        script = script_;
    }
    return script ? script(request) : WebAnswer::of(404, "nothing here");
}

bool ScriptedWebServer::send(ServerSocket& socket, const WebAnswer& answer) const {
    if (answer.gate.valid())
        answer.gate.wait();
    std::this_thread::sleep_for(answer.delay);
    if (answer.bytePause.count() > 0) {
        for (const char byte : answer.bytes) {
            std::this_thread::sleep_for(answer.bytePause);
            if (!socket.send(QByteArray(1, byte)))
                return false;
        }
    } else if (!answer.bytes.isEmpty() && !socket.send(answer.bytes)) {
        return false;
    }
    if (answer.isEndless) {
        const QByteArray repeated = answer.bytes.right(kRepeatedLength);
        while (socket.send(repeated)) {
        }
        return false;
    }
    if (answer.isSilentAfterwards) {
        while (!socket.read(kReadLength).isEmpty()) {
        }
        return false;
    }
    for (const Cut cut : answer.cuts)
        socket.cut(cut);
    return answer.cuts.empty();
}

} // namespace test_support
