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

int FTPSockets::open(User* user, const curl_sockaddr& address) {
    const std::lock_guard lock(mutex_);
    if (isOver_)
        return CURL_SOCKET_BAD;
    const int socket = ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
    if (socket < 0)
        return CURL_SOCKET_BAD;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &kMostUnsentBytes, sizeof kMostUnsentBytes);
    users_[socket] = user;
    return socket;
}

int FTPSockets::close(int socket) {
    User* user = nullptr;
    {
        const std::lock_guard lock(mutex_);
        user = users_[socket];
    }
    // Without the lock: the user may wait for a last word, which another thread may want to end.
    if (user)
        user->socketWillClose(socket);
    const std::lock_guard lock(mutex_);
    users_.erase(socket);
    return ::close(socket);
}

int FTPSockets::take(User* user, std::uint16_t localPort, std::uint16_t remotePort) {
    const std::lock_guard lock(mutex_);
    for (auto& [socket, owner] : users_) {
        if ((owner == nullptr || owner == user) && connects(socket, localPort, remotePort)) {
            owner = user;
            return socket;
        }
    }
    return -1;
}

void FTPSockets::release(User* user) {
    const std::lock_guard lock(mutex_);
    for (auto& [socket, owner] : users_) {
        if (owner == user)
            owner = nullptr;
    }
}

void FTPSockets::shutDown(const User* user) {
    const std::lock_guard lock(mutex_);
    for (const auto& [socket, owner] : users_) {
        if (owner == user)
            ::shutdown(socket, SHUT_RDWR);
    }
}

void FTPSockets::shutDownForGood() {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    for (const auto& [socket, owner] : users_)
        ::shutdown(socket, SHUT_RDWR);
}

void FTPSockets::shutDownIdle() {
    shutDown(nullptr);
}

} // namespace platform
