#pragma once

#include <QtCore/QByteArray>

#include <openssl/ssl.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace test_support {

/// How a connection is cut: with a FIN after all that was sent, or with an RST.
enum class Cut { None, Finish, Reset };

/// A socket of a test's server, blocking, in clear or with TLS. One thread uses it; `interrupt` is for
/// others.
class ServerSocket {
public:
    /// Told all bytes that come, as they are on the wire.
    using Tap = std::function<void(const char* bytes, std::size_t length)>;

    /// Listens at the loopback address, on a port of the system's choice.
    static std::unique_ptr<ServerSocket> listenOnLoopback(bool ipv6, std::optional<int> receiveBuffer = {});

    ~ServerSocket();
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    std::uint16_t port() const;
    int descriptor() const { return descriptor_; }
    /// The next connection; none after an interruption.
    std::unique_ptr<ServerSocket> accept(Tap tap) const;

    /// Goes over to TLS; false where the handshake fails.
    bool startTLS(SSL_CTX* context);
    bool isEncrypted() const { return tls_ != nullptr; }
    bool reusesSession() const { return tls_ && SSL_session_reused(tls_.get()) == 1; }

    /// At most `length` bytes, as soon as there are any; empty at the end, whatever its reason.
    QByteArray read(std::size_t length);
    /// True where the peer has said that all bytes were sent: by a FIN, or by TLS's closing notice.
    bool hasEndedInOrder() const { return hasEndedInOrder_; }
    bool send(const QByteArray& bytes);
    /// Ends the sending direction; `Reset` closes at once.
    void cut(Cut how);
    /// Makes whatever waits on the socket return. Any thread.
    void interrupt();

private:
    ServerSocket(int descriptor, Tap tap);
    void close();

    struct FreeTLS {
        void operator()(SSL* tls) const { SSL_free(tls); }
    };
    std::mutex mutex_; ///< Guards the descriptor against a close while another thread interrupts.
    int descriptor_;
    Tap tap_;
    std::unique_ptr<SSL, FreeTLS> tls_;
    bool hasEndedInOrder_ = false;
};

} // namespace test_support
