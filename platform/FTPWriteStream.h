#pragma once

#include "platform/RunLoop.h"
#include "platform/ServiceConfiguration.h"

#include <QtCore/QString>

#include <cstddef>
#include <cstdint>
#include <memory>

namespace platform {

class FTPWriteStream;

/// The events of a stream; a client's mask is a sum of them.
enum StreamEvent : unsigned {
    kStreamEventOpenCompleted = 1,
    kStreamEventHasBytesAvailable = 2,
    kStreamEventCanAcceptBytes = 4,
    kStreamEventErrorOccurred = 8,
    kStreamEventEndEncountered = 16,
};

using StreamErrorDomain = std::int64_t;
inline constexpr StreamErrorDomain kStreamErrorDomainNone = 0;
inline constexpr StreamErrorDomain kStreamErrorDomainPOSIX = 1;      ///< The code is an errno value.
inline constexpr StreamErrorDomain kStreamErrorDomainFTP = 6;        ///< The code is the server's reply code.
inline constexpr StreamErrorDomain kStreamErrorDomainNetDB = 12;     ///< A host name was not found.
inline constexpr StreamErrorDomain kStreamErrorDomainTransport = 13; ///< The code is libcurl's CURLcode.

struct StreamError {
    StreamErrorDomain domain = kStreamErrorDomainNone;
    std::int32_t error = 0;
};

/// Called on the run loop that the stream is scheduled on; never again while it runs.
using StreamCallback = void (*)(FTPWriteStream* stream, StreamEvent event, void* info);

/// What a client hands along with its callback; the three functions may be null.
struct StreamClientContext {
    int version = 0;
    void* info = nullptr;
    void* (*retain)(void* info) = nullptr;
    void (*release)(void* info) = nullptr;
    QString (*copyDescription)(void* info) = nullptr;
};

/// A connection that makes one folder or sends one file, over libcurl.
///
/// A URL that ends in "/" makes that folder on open: open-completed and end-encountered where it was made,
/// error-occurred with the server's code where it was not. Any other URL uploads a file, whose
/// `expectedLength` must be set: after open-completed, can-accept-bytes comes whenever `write` can take
/// bytes. The can-accept-bytes event that follows the last byte comes only after the server has confirmed the
/// file with its closing 2xx reply; a refusal, at whatever point, is error-occurred with
/// `kStreamErrorDomainFTP` and the server's code. Time-outs and refused connections are
/// `kStreamErrorDomainPOSIX`. Nothing comes after error-occurred, end-encountered or `close`.
///
/// All streams of the process share one I/O thread and, one after the other, one control connection to
/// a server. Use a stream on the thread that it is scheduled on; only `wakeOpenStreams` is for all.
class FTPWriteStream : public std::enable_shared_from_this<FTPWriteStream> {
public:
    /// Bytes that a stream holds before it has sent them: little, so that progress stays honest.
    static constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

    /// Makes a stream for a percent-escaped "ftp://host:port/path" text, its path counted from the login
    /// folder. None where it is no such URL, has no host or no path, is not UTF-8, or a path component is
    /// ".", ".." or holds a control character.
    static std::shared_ptr<FTPWriteStream> create(const QString& url, const Transport& transport);

    /// Percent-escapes, as UTF-8, everything but unreserved characters and "/" behind the host and port
    /// of a "ftp://" URL text.
    static QString percentEscaped(const QString& urlText);

    ~FTPWriteStream();
    FTPWriteStream(const FTPWriteStream&) = delete;
    FTPWriteStream& operator=(const FTPWriteStream&) = delete;

    // Before `open`. Control characters in the credentials fail the open. Without a user name (or with an
    // empty one) the login is anonymous.
    void setUserName(const QString& userName);
    void setPassword(const QString& password);
    void setExpectedLength(std::uint64_t bytes);

    /// Installs the client, or removes it where `callback` is null. False for an unknown event in the
    /// mask or a version other than 0.
    bool setClient(unsigned eventMask, StreamCallback callback, const StreamClientContext* context);
    void schedule(const std::shared_ptr<RunLoop>& runLoop);
    void unschedule(const std::shared_ptr<RunLoop>& runLoop);

    /// Starts the transfer. False, with `error`, where it can't even start; no event comes then.
    bool open();
    /// Takes what fits into the buffer and returns its count; 0 where it is full, -1 after an error or
    /// before open-completed.
    std::int64_t write(const std::uint8_t* bytes, std::size_t length);
    StreamError error() const;
    /// Ends the transfer at once, whatever the server does.
    void close();

    /// Gives every open stream of the process a has-bytes-available event, so that its client can look
    /// at a flag of its own at once. Any thread.
    static void wakeOpenStreams();

private:
    class Channel;
    explicit FTPWriteStream(std::shared_ptr<Channel> channel);
    const std::shared_ptr<Channel> channel_;
};

} // namespace platform
