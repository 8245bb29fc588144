#pragma once

#include "platform/FTPWriteStream.h"

#include "tests/support/ScriptedFTPServer.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

class QEventLoop;

namespace ftp_stream_tests {

inline const QString kService = QStringLiteral("ftp://ftp.quillmark.example:21/");
inline constexpr platform::StreamError kNoError{};

/// Bytes that no protocol is made of, different from file to file.
QByteArray sampleBytes(qsizetype size, unsigned seed = 1);

/// One stream with a client that does what uploads and folder creation do: writes the rest of the file
/// whenever it may, and ends at the first event that decides.
class StreamRun {
public:
    /// A folder where the path ends in "/". Names are escaped here.
    StreamRun(const QString& path, const platform::Transport& transport, const QByteArray& contents = {});
    ~StreamRun();
    StreamRun(const StreamRun&) = delete;
    StreamRun& operator=(const StreamRun&) = delete;

    /// Opens it on the calling thread's run loop.
    bool open();
    /// Runs the calling thread's loop until it is decided; false where it never is.
    bool wait();
    bool openAndWait() { return open() && wait(); }

    bool isDecided() const { return isDecided_; }
    bool succeeded() const { return succeeded_; }

    std::shared_ptr<platform::FTPWriteStream> stream;
    QByteArray contents;
    std::vector<platform::StreamEvent> events;
    platform::StreamError error; ///< As the stream told it at error-occurred.
    std::int64_t written = 0;
    /// Called first at every event; the client does nothing more with an event for which it returns true.
    std::function<bool(platform::StreamEvent)> onEvent;
    bool closesAtEnd = true;

private:
    static void callback(platform::FTPWriteStream* stream, platform::StreamEvent event, void* info);
    void handle(platform::StreamEvent event);
    void decide(bool success);

    QEventLoop* loop_ = nullptr;
    bool isDecided_ = false;
    bool succeeded_ = false;
};

/// A scripted server and streams to it.
class FTPStreamTest : public testing::Test {
protected:
    FTPStreamTest() { useServer({}); }

    void useServer(const test_support::ScriptedFTPServer::Options& options);
    bool makeFolder(const QString& path);
    bool upload(const QString& path, const QByteArray& contents);
    /// The error of a file that is sent to the folder "77".
    platform::StreamError uploadError(const QByteArray& contents = sampleBytes(1000));
    platform::StreamError folderError();

    std::unique_ptr<test_support::ScriptedFTPServer> server;
    platform::Transport transport;
};

std::vector<platform::StreamEvent> uploadEvents(int canAcceptBytesEvents);
/// Without those that only say that bytes may be written.
std::vector<platform::StreamEvent> decisiveEvents(const std::vector<platform::StreamEvent>& events);

constexpr platform::StreamError ftpError(int code) {
    return {platform::kStreamErrorDomainFTP, code};
}
constexpr platform::StreamError posixError(int code) {
    return {platform::kStreamErrorDomainPOSIX, code};
}

} // namespace ftp_stream_tests

namespace platform {

inline bool operator==(const StreamError& left, const StreamError& right) {
    return left.domain == right.domain && left.error == right.error;
}
void PrintTo(const StreamError& error, std::ostream* out);

} // namespace platform
