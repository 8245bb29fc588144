#include "platform/FTPSockets.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace platform {

namespace {

/// Bytes not yet sent that the system may hold for one connection. Little, so that progress stays honest and
/// the server's closing reply is not waited for while megabytes still lie here; what is on its way to the
/// server doesn't count, so it costs no speed.
constexpr int kMostUnsentBytes = 128 * 1024;

/// The port stands at the same place in both families' addresses.
std::uint16_t portOf(const sockaddr_storage& address) {
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
}

bool connects(int socket, std::uint16_t localPort, std::uint16_t remotePort) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        portOf(address) != localPort)
        return false;
    length = sizeof address;
    return ::getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
           portOf(address) == remotePort;
}

} // namespace

int FTPSockets::open(User* user, Purpose purpose, const curl_sockaddr& address) {
    const std::lock_guard lock(mutex_);
    if (isOver_)
        return CURL_SOCKET_BAD;
    const int socket = ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket < 0)
        return CURL_SOCKET_BAD;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kMostUnsentBytes, sizeof kMostUnsentBytes);
    uses_[socket] = {user, purpose};
    return socket;
}

int FTPSockets::close(int socket) {
    User* user = nullptr;
    {
        const std::lock_guard lock(mutex_);
        user = uses_[socket].user;
    }
    // Without the lock: the user may wait for a last word, which another thread may want to end.
    if (user)
        user->socketWillClose(socket);
    const std::lock_guard lock(mutex_);
    uses_.erase(socket);
    return ::close(socket);
}

int FTPSockets::take(User* user, std::uint16_t localPort, std::uint16_t remotePort) {
    const std::lock_guard lock(mutex_);
    for (auto& [socket, use] : uses_) {
        if ((use.user == nullptr || use.user == user) && connects(socket, localPort, remotePort)) {
            use.user = user;
            return socket;
        }
    }
    return -1;
}

void FTPSockets::release(User* user) {
    const std::lock_guard lock(mutex_);
    for (auto& [socket, use] : uses_) {
        if (use.user == user)
            use.user = nullptr;
    }
}

void FTPSockets::shutDown(int socket, Purpose purpose) {
    if (purpose == Purpose::Control) {
        ::shutdown(socket, SHUT_RDWR);
        return;
    }
    // A FIN would say that the file is whole. Dissolving the connection says RST at once (connect(2),
    // tcp(7)).
    const sockaddr nobody{AF_UNSPEC, {}};
    ::connect(socket, &nobody, sizeof nobody);
}

void FTPSockets::shutDown(const User* user) {
    const std::lock_guard lock(mutex_);
    // The data first: a server that misses its control connection may take the file for what has come of it.
    for (const Purpose purpose : {Purpose::Data, Purpose::Control}) {
        for (const auto& [socket, use] : uses_) {
            if (use.user == user && use.purpose == purpose)
                shutDown(socket, purpose);
        }
    }
}

void FTPSockets::shutDownForGood() {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    for (const auto& [socket, use] : uses_)
        shutDown(socket, use.purpose);
}

void FTPSockets::shutDownIdle() {
    shutDown(nullptr);
}

void FTPSockets::cutOffWhenClosed(int socket) {
    // socket(7): closed with no time to linger.
    const linger none{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

} // namespace platform
