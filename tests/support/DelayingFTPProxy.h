#pragma once

#include <QtCore/QString>
#include <QtCore/QThread>

#include <chrono>
#include <cstdint>

namespace test_support {

/// Stands between a client and an FTP server in clear, and makes them seem far apart: whatever comes, on
/// control and data connections, goes on so much later. A connection of its own is there at once, as on
/// loopback. Extended passive mode only.
class DelayingFTPProxy {
public:
    DelayingFTPProxy(std::uint16_t serverPort, std::chrono::milliseconds eachWay);
    ~DelayingFTPProxy();
    DelayingFTPProxy(const DelayingFTPProxy&) = delete;
    DelayingFTPProxy& operator=(const DelayingFTPProxy&) = delete;

    /// An entry for `Transport::connectTo` that brings the service's FTP host to this proxy.
    QString connectTo() const;

private:
    QThread thread_;
    std::uint16_t port_ = 0;
};

} // namespace test_support
