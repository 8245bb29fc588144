// The FTP server's side of a folder's and a file's conversation. The input is what the server says: its
// greeting up to the first byte 0, then the answer to each line that comes. "PORT" in an answer stands for
// the number of a port at which a file's data is taken. What is left when the file has come is the closing
// reply.

#include "platform/FTPWriteStream.h"
#include "tests/fuzz/FuzzData.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <limits>
#include <thread>

using namespace platform;

namespace {

constexpr qint64 kDeadlineMs = 15'000;
constexpr int kLookMs = 5;
/// How often it is looked for what the client has to say or to send. Then the server goes on: an answer that
/// the client waits to hear the rest of would cost its whole time-out.
constexpr int kLooks = 10;
const QByteArray kContents(3000, 'x');

/// A socket that closes itself.
class Socket {
public:
    explicit Socket(int descriptor)
        : descriptor_(descriptor) {}
    ~Socket() {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    static int listening() {
        const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
        require(::listen(descriptor, 4) == 0);
        return descriptor;
    }

    int port() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }
    int accept() const { return ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC); }
    bool isReadable() const {
        pollfd waiting{descriptor_, POLLIN, 0};
        return ::poll(&waiting, 1, kLookMs) > 0;
    }
    int descriptor() const { return descriptor_; }

private:
    const int descriptor_;
};

/// Says what the input says, to one control connection after the other.
class Server {
public:
    explicit Server(QList<QByteArray> replies)
        : replies_(std::move(replies))
        , control_(Socket::listening())
        , passive_(Socket::listening())
        , thread_([this] { run(); }) {}

    ~Server() {
        isOver_ = true;
        thread_.join();
    }

    int port() const { return control_.port(); }
    std::size_t received() const { return received_; }

private:
    void run() {
        while (waitFor(control_))
            talk(Socket(control_.accept()));
    }

    /// False where it is over, or nothing has come after so many looks.
    bool waitFor(const Socket& socket, int looks = std::numeric_limits<int>::max()) const {
        while (!isOver_ && looks-- > 0) {
            if (socket.isReadable())
                return true;
        }
        return false;
    }

    void talk(const Socket& connection) {
        std::array<char, 4096> buffer{};
        while (!replies_.isEmpty()) {
            const QByteArray reply =
                replies_.takeFirst().replace("PORT", QByteArray::number(passive_.port()));
            if (::send(connection.descriptor(), reply.constData(), static_cast<std::size_t>(reply.size()),
                       MSG_NOSIGNAL) < 0)
                return;
            if (reply.startsWith('1'))
                takeData();
            else if (waitFor(connection, kLooks) &&
                     ::recv(connection.descriptor(), buffer.data(), buffer.size(), 0) <= 0)
                return;
        }
    }

    void takeData() {
        if (!waitFor(passive_, kLooks))
            return;
        const Socket data(passive_.accept());
        std::array<char, 4096> buffer{};
        ssize_t count = 0;
        while (waitFor(data, kLooks) &&
               (count = ::recv(data.descriptor(), buffer.data(), buffer.size(), 0)) > 0)
            received_ += static_cast<std::size_t>(count);
    }

    QList<QByteArray> replies_;
    const Socket control_;
    const Socket passive_;
    std::atomic<bool> isOver_{false};
    std::atomic<std::size_t> received_{0};
    std::thread thread_;
};

/// A client that sends all and waits for the end.
struct Client {
    std::shared_ptr<FTPWriteStream> stream;
    qsizetype written = 0;
    bool isConfirmed = false;
    bool hasEnded = false;

    static void heard(FTPWriteStream* stream, StreamEvent event, void* info) {
        auto& client = *static_cast<Client*>(info);
        require(!client.hasEnded);
        if (event == kStreamEventErrorOccurred) {
            require(stream->error().domain != kStreamErrorDomainNone);
            client.hasEnded = true;
        } else if (event == kStreamEventEndEncountered) {
            client.isConfirmed = client.hasEnded = true;
        } else if (event == kStreamEventCanAcceptBytes) {
            client.accept(*stream);
        }
    }

    void accept(FTPWriteStream& to) {
        if (written == kContents.size()) {
            isConfirmed = hasEnded = true;
            return;
        }
        const auto taken = to.write(reinterpret_cast<const std::uint8_t*>(kContents.constData()) + written,
                                    static_cast<std::size_t>(kContents.size() - written));
        require(taken > 0);
        written += taken;
    }
};

bool isConfirmed(const QString& path, int port) {
    Transport transport;
    transport.connectTo = QStringLiteral("ftp.quillmark.example:21:127.0.0.1:%1").arg(port);
    transport.idleTimeout = std::chrono::seconds{1};
    Client client;
    client.stream =
        FTPWriteStream::create(QStringLiteral("ftp://ftp.quillmark.example:21/") + path, transport);
    client.stream->setUserName(QStringLiteral("ann"));
    client.stream->setPassword(QStringLiteral("secret"));
    client.stream->setExpectedLength(static_cast<std::uint64_t>(kContents.size()));
    StreamClientContext context;
    context.info = &client;
    client.stream->setClient(31, &Client::heard, &context);
    client.stream->schedule(RunLoop::current());
    require(client.stream->open());
    QElapsedTimer timer;
    timer.start();
    while (!client.hasEnded) {
        require(timer.elapsed() < kDeadlineMs); // Nothing that a server says is waited for for ever.
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 100);
    }
    client.stream->close();
    return client.isConfirmed;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static int count = 0;
    static char* arguments[] = {nullptr};
    static const QCoreApplication application(count, arguments);
    Server server(QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)).split('\0'));
    isConfirmed(QStringLiteral("77/"), server.port());
    if (isConfirmed(QStringLiteral("77/a.jpg"), server.port()))
        require(server.received() == static_cast<std::size_t>(kContents.size()));
    return 0;
}
