#pragma once

#include <QtCore/QStringList>

#include <cstddef>

namespace ftp_tests {

/// Stands between the FTP rooms' code and the stream that it uses, by the linker's --wrap: passes every call
/// on and notes it. It sees what no server can: the order in which a stream is taken down.
class StreamSpy {
public:
    StreamSpy();
    ~StreamSpy();
    StreamSpy(const StreamSpy&) = delete;
    StreamSpy& operator=(const StreamSpy&) = delete;

    /// "setClient", "removeClient", "schedule", "unschedule", "open", "close", and what `note` added.
    QStringList calls() const;
    void note(const QString& what);
    void clear();

    /// From now on every client is refused.
    void refuseClients();
    /// The next allocation of exactly `size` bytes by `std::malloc` fails.
    void failNextAllocation(std::size_t size);
    bool hasFailedAnAllocation() const;
};

} // namespace ftp_tests
