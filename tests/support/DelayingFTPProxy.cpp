#include "tests/support/DelayingFTPProxy.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <functional>
#include <stdexcept>

namespace test_support {

namespace {

/// Changes what the server says before it goes on its way.
using Rewrite = std::function<QByteArray(const QByteArray&)>;

void later(std::chrono::milliseconds delay, QTcpSocket* to, const std::function<void()>& work) {
    // Timers of one length fire in the order of their starts, so bytes keep theirs.
    QTimer::singleShot(delay, Qt::PreciseTimer, to, work);
}

void passOn(QTcpSocket* from, QTcpSocket* to, std::chrono::milliseconds delay, const Rewrite& rewrite = {}) {
    const auto passBytes = [=] {
        const QByteArray bytes = from->isOpen() ? from->readAll() : QByteArray();
        if (!bytes.isEmpty())
            later(delay, to, [=] { to->write(rewrite ? rewrite(bytes) : bytes); });
    };
    QObject::connect(from, &QTcpSocket::readyRead, to, passBytes);
    QObject::connect(from, &QTcpSocket::disconnected, to, [=] {
        passBytes();
        later(delay, to, [to] { to->disconnectFromHost(); });
    });
}

/// Listens for connections to `serverPort`; the port it listens at.
std::uint16_t listenFor(std::uint16_t serverPort, std::chrono::milliseconds delay, QObject* parent,
                        const Rewrite& rewrite) {
    auto* const listening = new QTcpServer(parent);
    if (!listening->listen(QHostAddress::LocalHost))
        throw std::runtime_error("the proxy can't listen");
    QObject::connect(listening, &QTcpServer::newConnection, listening, [=] {
        while (QTcpSocket* const client = listening->nextPendingConnection()) {
            auto* const server = new QTcpSocket(client);
            client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            server->setSocketOption(QAbstractSocket::LowDelayOption, 1);
            server->connectToHost(QHostAddress::LocalHost, serverPort);
            passOn(client, server, delay);
            passOn(server, client, delay, rewrite);
        }
    });
    return listening->serverPort();
}

/// Puts the port of a data connection of the proxy's own in the place of the server's.
QByteArray withOwnPort(const QByteArray& reply, std::chrono::milliseconds delay, QObject* parent) {
    static const QRegularExpression passive(QStringLiteral("^229 .*\\(\\|\\|\\|(\\d+)\\|\\)"));
    const auto match = passive.match(QString::fromLatin1(reply));
    if (!match.hasMatch())
        return reply;
    const QByteArray port = match.captured(1).toLatin1();
    const auto own = listenFor(port.toUShort(), delay, parent, {});
    return QByteArray(reply).replace("|||" + port + '|', "|||" + QByteArray::number(own) + '|');
}

} // namespace

DelayingFTPProxy::DelayingFTPProxy(std::uint16_t serverPort, std::chrono::milliseconds eachWay) {
    auto* const root = new QObject;
    root->moveToThread(&thread_);
    QObject::connect(&thread_, &QThread::finished, root, &QObject::deleteLater);
    thread_.start();
    QMetaObject::invokeMethod(
        root,
        [=, this] {
            port_ = listenFor(serverPort, eachWay, root,
                              [=](const QByteArray& reply) { return withOwnPort(reply, eachWay, root); });
        },
        Qt::BlockingQueuedConnection);
}

DelayingFTPProxy::~DelayingFTPProxy() {
    thread_.quit();
    thread_.wait();
}

QString DelayingFTPProxy::connectTo() const {
    return QStringLiteral("ftp.quillmark.example:21:127.0.0.1:%1").arg(port_);
}

} // namespace test_support
