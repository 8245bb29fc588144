#include "tests/support/ScriptedFTPServer.h"

#include "tests/support/FTPConversation.h"

#include <QtCore/QFile>

#include <csignal>
#include <list>
#include <stdexcept>

namespace test_support {

namespace {

constexpr unsigned char kSessionContext[] = "scripted";

SSL_CTX* makeTLSContext(const ServerCertificate& certificate) {
    SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
    const QByteArray certificateFile = QFile::encodeName(certificate.certificateFile);
    const QByteArray keyFile = QFile::encodeName(certificate.keyFile);
    if (SSL_CTX_use_certificate_chain_file(context, certificateFile.constData()) != 1 ||
        SSL_CTX_use_PrivateKey_file(context, keyFile.constData(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("no certificate for the server");
    SSL_CTX_set_session_id_context(context, kSessionContext, sizeof kSessionContext);
    return context;
}

/// OpenSSL writes to sockets without MSG_NOSIGNAL: a client that is gone must not end the test.
void blockBrokenPipeSignal() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace

ScriptedFTPServer::ScriptedFTPServer()
    : ScriptedFTPServer(Options{}) {}

ScriptedFTPServer::ScriptedFTPServer(const Options& options)
    : state_(std::make_shared<FTPServerState>())
    , listening_(ServerSocket::listenOnLoopback(options.ipv6)) {
    state_->options = options;
    if (options.certificate)
        state_->tls.reset(makeTLSContext(*options.certificate));
    port_ = listening_->port();
    acceptor_ = std::thread([this] { acceptConnections(); });
}

ScriptedFTPServer::~ScriptedFTPServer() {
    {
        const std::lock_guard lock(state_->mutex);
        state_->isStopping = true;
        state_->stopped.notify_all();
        for (ServerSocket* const socket : state_->sockets)
            socket->interrupt();
    }
    listening_->interrupt();
    acceptor_.join();
}

void ScriptedFTPServer::acceptConnections() {
    blockBrokenPipeSignal();
    std::list<std::thread> conversations;
    while (auto control = listening_->accept(state_->tap())) {
        int number = 0;
        {
            const std::lock_guard lock(state_->mutex);
            number = state_->connections++;
            ++state_->openConnections;
        }
        conversations.emplace_back([state = state_, number, control = std::move(control)]() mutable {
            FTPConversation(std::move(state), std::move(control), number).run();
        });
    }
    for (std::thread& conversation : conversations)
        conversation.join();
}

std::uint16_t ScriptedFTPServer::port() const {
    return port_;
}

QString ScriptedFTPServer::connectTo(const QString& host) const {
    const auto address = state_->options.ipv6 ? QLatin1String("[::1]") : QLatin1String("127.0.0.1");
    return QStringLiteral("%1:21:%2:%3").arg(host, address).arg(port_);
}

void ScriptedFTPServer::on(const QByteArray& step, const FTPFault& fault, int occurrence) {
    const std::lock_guard lock(state_->mutex);
    state_->faults[step][occurrence == kEveryTime ? kEveryTime : state_->stepCounts[step] + occurrence] =
        fault;
}

void ScriptedFTPServer::on(const QByteArray& step, const QByteArray& answer, int occurrence) {
    on(step, FTPFault{.answer = answer}, occurrence);
}

void ScriptedFTPServer::onData(const FTPDataFault& fault, int occurrence) {
    const std::lock_guard lock(state_->mutex);
    state_->dataFaults[occurrence == kEveryTime ? kEveryTime : state_->uploadCount + occurrence] = fault;
}

void ScriptedFTPServer::clearFaults() {
    const std::lock_guard lock(state_->mutex);
    state_->faults.clear();
    state_->dataFaults.clear();
}

void ScriptedFTPServer::setPassiveAddress(const QByteArray& fourNumbers) {
    const std::lock_guard lock(state_->mutex);
    state_->passiveAddress = fourNumbers;
}

void ScriptedFTPServer::setDataPace(std::chrono::milliseconds pausePerPiece, std::size_t pieceSize) {
    const std::lock_guard lock(state_->mutex);
    state_->pace = pausePerPiece;
    state_->pieceSize = pieceSize;
}

QList<QByteArray> ScriptedFTPServer::commands(int connection) const {
    const std::lock_guard lock(state_->mutex);
    QList<QByteArray> texts;
    for (const auto& line : state_->lines) {
        if (line.connection == connection)
            texts << line.text;
    }
    return texts;
}

QList<QByteArray> ScriptedFTPServer::commands() const {
    const std::lock_guard lock(state_->mutex);
    QList<QByteArray> texts;
    for (const auto& line : state_->lines)
        texts << line.text;
    return texts;
}

int ScriptedFTPServer::count(const QByteArray& command) const {
    int found = 0;
    for (const QByteArray& line : commands())
        found += line == command || line.startsWith(command + ' ');
    return found;
}

int ScriptedFTPServer::connectionCount() const {
    const std::lock_guard lock(state_->mutex);
    return state_->connections;
}

int ScriptedFTPServer::openConnectionCount() const {
    const std::lock_guard lock(state_->mutex);
    return state_->openConnections;
}

QByteArray ScriptedFTPServer::wireBytes() const {
    const std::lock_guard lock(state_->mutex);
    return state_->wire;
}

std::map<QByteArray, QByteArray> ScriptedFTPServer::files() const {
    const std::lock_guard lock(state_->mutex);
    return state_->files;
}

std::uint64_t ScriptedFTPServer::receivedBytes() const {
    const std::lock_guard lock(state_->mutex);
    return state_->receivedBytes;
}

QList<QByteArray> ScriptedFTPServer::folders() const {
    const std::lock_guard lock(state_->mutex);
    return state_->folders;
}

void ScriptedFTPServer::addFolder(const QByteArray& path) {
    const std::lock_guard lock(state_->mutex);
    state_->folders.append(path);
}

} // namespace test_support
