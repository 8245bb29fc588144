// The FTP server's side of a folder's and a file's conversation. The input is what the server says: its
// greeting up to the first byte 0, then the answer to each line that comes. "PORT" in an answer stands for
// the number of a port at which a file's data is taken. What is left when the file has come is the closing
// reply.

#include "platform/FTPWriteStream.h"
#include "tests/fuzz/FuzzData.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

using namespace platform;

namespace {

constexpr std::chrono::seconds kDeadline{15};
/// How long the server looks for what the client has to say or to send. Then it goes on: an answer that the
/// client waits to hear the rest of would cost its whole time-out.
constexpr int kPatienceMs = 10;
constexpr int kForever = -1;
constexpr qsizetype kReplyCodeLength = 3;
const QByteArray kContents(3000, 'x');

/// Closes itself.
class Descriptor {
public:
    explicit Descriptor(int number)
        : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            ::close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    static int listening() {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0);
        require(::listen(socket, 4) == 0);
        return socket;
    }

    int port() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(number_, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }
    /// A connection whose replies don't wait for the acknowledgement of the ones before.
    int accept() const {
        const int socket = ::accept4(number_, nullptr, nullptr, SOCK_CLOEXEC);
        const int yes = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        return socket;
    }
    int number() const { return number_; }

private:
    const int number_;
};

/// A client waits for more after anything but a line of a code and a space: it has nothing to say.
bool mayBeAnswered(const QByteArray& reply) {
    if (!reply.endsWith('\n'))
        return false;
    const QByteArray line = reply.mid(reply.lastIndexOf('\n', -2) + 1);
    return line.size() > kReplyCodeLength && line.at(kReplyCodeLength) == ' ' &&
           std::all_of(line.begin(), line.begin() + kReplyCodeLength,
                       [](char character) { return character >= '0' && character <= '9'; });
}

/// Says what the input says, to one control connection after the other.
class Server {
public:
    explicit Server(QList<QByteArray> replies)
        : replies_(std::move(replies))
        , thread_([this] { run(); }) {}

    ~Server() { end(); }

    int port() const { return control_.port(); }

    /// The data that has come, on whatever connection. The server says no more.
    std::size_t received() {
        end();
        takeData(0);
        return received_;
    }

private:
    void end() {
        ::eventfd_write(over_.number(), 1);
        if (thread_.joinable())
            thread_.join();
    }

    void run() {
        while (waitFor(control_, kForever))
            talk(Descriptor(control_.accept()));
    }

    /// False where it is over, or nothing has come in that time.
    bool waitFor(const Descriptor& socket, int milliseconds) const {
        std::array<pollfd, 2> waiting{{{socket.number(), POLLIN, 0}, {over_.number(), POLLIN, 0}}};
        return ::poll(waiting.data(), waiting.size(), milliseconds) > 0 && waiting[1].revents == 0;
    }

    void talk(const Descriptor& connection) {
        std::array<char, 4096> buffer{};
        bool isFileAsked = false;
        while (!replies_.isEmpty()) {
            const QByteArray reply =
                replies_.takeFirst().replace("PORT", QByteArray::number(passive_.port()));
            if (::send(connection.number(), reply.constData(), static_cast<std::size_t>(reply.size()),
                       MSG_NOSIGNAL) < 0)
                return;
            if (isFileAsked && reply.startsWith('1')) {
                takeData(kPatienceMs);
            } else if (mayBeAnswered(reply) && waitFor(connection, kPatienceMs)) {
                const auto length = ::recv(connection.number(), buffer.data(), buffer.size(), 0);
                if (length <= 0)
                    return;
                isFileAsked =
                    std::string_view(buffer.data(), static_cast<std::size_t>(length)).starts_with("STOR");
            }
        }
    }

    /// From all data connections that have been made, or are within that time. They stay open to their end: a
    /// server that confirms what it has cut off can't be found out.
    void takeData(int milliseconds) {
        pollfd waiting{passive_.number(), POLLIN, 0};
        while (::poll(&waiting, 1, std::exchange(milliseconds, 0)) > 0)
            data_.push_back(std::make_unique<Descriptor>(passive_.accept()));
        std::erase_if(data_, [this](const auto& data) { return !receive(*data); });
    }

    /// False at the end.
    bool receive(const Descriptor& data) {
        std::array<char, 4096> buffer{};
        pollfd waiting{data.number(), POLLIN, 0};
        while (::poll(&waiting, 1, kPatienceMs) > 0) {
            const auto count = ::recv(data.number(), buffer.data(), buffer.size(), 0);
            if (count <= 0)
                return false;
            received_ += static_cast<std::size_t>(count);
        }
        return true;
    }

    QList<QByteArray> replies_;
    const Descriptor control_{Descriptor::listening()};
    const Descriptor passive_{Descriptor::listening()};
    const Descriptor over_{::eventfd(0, EFD_CLOEXEC)};
    std::vector<std::unique_ptr<Descriptor>> data_;
    std::size_t received_ = 0;
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
    // Nothing that a server says is waited for for ever.
    QTimer deadline;
    QObject::connect(&deadline, &QTimer::timeout, [] { require(false); });
    deadline.start(kDeadline);
    while (!client.hasEnded)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
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
