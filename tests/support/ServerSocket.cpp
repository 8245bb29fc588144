#include "tests/support/ServerSocket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace test_support {

namespace {

constexpr int kBacklog = 64;

void tellTap(const ServerSocket::Tap* tap, const char* bytes, std::size_t length) {
    if (*tap)
        (*tap)(bytes, length);
}

long watchReading(BIO* bio, int operation, const char* bytes, std::size_t, int, long, int result,
                  std::size_t* processed) {
    if (operation == (BIO_CB_READ | BIO_CB_RETURN) && result > 0)
        tellTap(reinterpret_cast<const ServerSocket::Tap*>(BIO_get_callback_arg(bio)), bytes, *processed);
    return result;
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

ServerSocket::ServerSocket(int descriptor, Tap tap)
    : descriptor_(descriptor)
    , tap_(std::move(tap)) {}

ServerSocket::~ServerSocket() {
    // Without a goodbye OpenSSL forgets the session, and nobody could reuse it.
    if (tls_)
        SSL_shutdown(tls_.get());
    tls_.reset();
    close();
}

std::unique_ptr<ServerSocket> ServerSocket::listenOnLoopback(bool ipv6, std::optional<int> receiveBuffer) {
    const int family = ipv6 ? AF_INET6 : AF_INET;
    std::unique_ptr<ServerSocket> made(new ServerSocket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0), {}));
    if (made->descriptor_ < 0)
        fail("socket");
    // Connections inherit the buffer's size from the listening socket, and only from there.
    if (receiveBuffer)
        ::setsockopt(made->descriptor_, SOL_SOCKET, SO_RCVBUF, &*receiveBuffer, sizeof *receiveBuffer);
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_addr = in6addr_loopback;
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto* address = ipv6 ? reinterpret_cast<sockaddr*>(&six) : reinterpret_cast<sockaddr*>(&four);
    if (::bind(made->descriptor_, address, ipv6 ? sizeof six : sizeof four) != 0 ||
        ::listen(made->descriptor_, kBacklog) != 0)
        fail("listen");
    return made;
}

std::uint16_t ServerSocket::port() const {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        fail("getsockname");
    // The port stands at the same place in both families' addresses.
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

std::unique_ptr<ServerSocket> ServerSocket::accept(Tap tap) const {
    const int descriptor = ::accept4(descriptor_, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0)
        return nullptr;
    const int yes = 1;
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    return std::unique_ptr<ServerSocket>(new ServerSocket(descriptor, std::move(tap)));
}

bool ServerSocket::startTLS(SSL_CTX* context) {
    tls_.reset(SSL_new(context));
    SSL_set_fd(tls_.get(), descriptor_);
    BIO_set_callback_arg(SSL_get_rbio(tls_.get()), reinterpret_cast<char*>(&tap_));
    BIO_set_callback_ex(SSL_get_rbio(tls_.get()), watchReading);
    return SSL_accept(tls_.get()) == 1;
}

QByteArray ServerSocket::read(std::size_t length) {
    QByteArray bytes(static_cast<qsizetype>(length), Qt::Uninitialized);
    const auto count = tls_ ? SSL_read(tls_.get(), bytes.data(), static_cast<int>(length))
                            : static_cast<int>(::recv(descriptor_, bytes.data(), length, 0));
    bytes.resize(count > 0 ? count : 0);
    if (count <= 0)
        hasEndedInOrder_ = tls_ ? SSL_get_error(tls_.get(), count) == SSL_ERROR_ZERO_RETURN : count == 0;
    if (!tls_)
        tellTap(&tap_, bytes.constData(), static_cast<std::size_t>(bytes.size()));
    return bytes;
}

bool ServerSocket::send(const QByteArray& bytes) {
    if (tls_)
        return SSL_write(tls_.get(), bytes.constData(), static_cast<int>(bytes.size())) > 0;
    return ::send(descriptor_, bytes.constData(), static_cast<std::size_t>(bytes.size()), MSG_NOSIGNAL) ==
           bytes.size();
}

void ServerSocket::cut(Cut how) {
    if (how == Cut::Finish) {
        if (tls_)
            SSL_shutdown(tls_.get());
        ::shutdown(descriptor_, SHUT_WR);
    } else if (how == Cut::Reset) {
        // A socket that is closed with no time to linger says RST (socket(7)).
        const linger none{1, 0};
        ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
        tls_.reset();
        close();
    }
}

void ServerSocket::interrupt() {
    const std::lock_guard lock(mutex_);
    if (descriptor_ >= 0)
        ::shutdown(descriptor_, SHUT_RDWR);
}

void ServerSocket::close() {
    const std::lock_guard lock(mutex_);
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
}

} // namespace test_support
