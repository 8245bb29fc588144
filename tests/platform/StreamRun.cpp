#include "tests/platform/StreamRun.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <ostream>
#include <random>

namespace ftp_stream_tests {

using namespace platform;
using test_support::ScriptedFTPServer;

QByteArray sampleBytes(qsizetype size, unsigned seed) {
    QByteArray bytes(size, Qt::Uninitialized);
    std::minstd_rand random(seed);
    for (char& byte : bytes)
        byte = static_cast<char>(random() >> 8);
    return bytes;
}

StreamRun::StreamRun(const QString& path, const Transport& transport, const QByteArray& bytes)
    : stream(FTPWriteStream::create(FTPWriteStream::percentEscaped(kService + path), transport))
    , contents(bytes) {
    if (!stream)
        throw std::runtime_error("no stream for the path");
    stream->setUserName(QStringLiteral("ann"));
    stream->setPassword(QStringLiteral("secret"));
    if (!path.endsWith(QLatin1Char('/')))
        stream->setExpectedLength(static_cast<std::uint64_t>(contents.size()));
    const StreamClientContext context{.info = this};
    stream->setClient(31, &StreamRun::callback, &context);
}

StreamRun::~StreamRun() {
    if (!stream)
        return;
    stream->setClient(0, nullptr, nullptr);
    stream->close();
}

bool StreamRun::open() {
    stream->schedule(RunLoop::current());
    return stream->open();
}

bool StreamRun::wait() {
    // A loop of its own rather than one that looks every few milliseconds: uploads are timed.
    QEventLoop loop;
    loop_ = &loop;
    QTimer::singleShot(test_support::kDeadline, &loop, &QEventLoop::quit);
    if (!isDecided_)
        loop.exec();
    loop_ = nullptr;
    return isDecided_;
}

void StreamRun::callback(FTPWriteStream*, StreamEvent event, void* info) {
    static_cast<StreamRun*>(info)->handle(event);
}

void StreamRun::handle(StreamEvent event) {
    events.push_back(event);
    if (onEvent && onEvent(event))
        return;
    switch (event) {
    case kStreamEventCanAcceptBytes: {
        if (written == contents.size())
            return decide(true);
        const auto* const rest = reinterpret_cast<const std::uint8_t*>(contents.constData()) + written;
        const auto count = stream->write(rest, static_cast<std::size_t>(contents.size() - written));
        if (count <= 0)
            return decide(false);
        written += count;
        return;
    }
    case kStreamEventErrorOccurred:
        return decide(false);
    case kStreamEventEndEncountered:
        return decide(true);
    case kStreamEventOpenCompleted:
    case kStreamEventHasBytesAvailable:
        return;
    }
}

void StreamRun::decide(bool success) {
    isDecided_ = true;
    succeeded_ = success;
    error = stream->error();
    if (closesAtEnd)
        stream->close();
    if (loop_)
        loop_->quit();
}

void FTPStreamTest::useServer(const ScriptedFTPServer::Options& options) {
    server = std::make_unique<ScriptedFTPServer>(options);
    transport.connectTo = server->connectTo();
}

bool FTPStreamTest::makeFolder(const QString& path) {
    StreamRun run(path, transport);
    return run.openAndWait() && run.succeeded();
}

bool FTPStreamTest::upload(const QString& path, const QByteArray& contents) {
    StreamRun run(path, transport, contents);
    return run.openAndWait() && run.succeeded();
}

StreamError FTPStreamTest::uploadError(const QByteArray& contents) {
    if (!server->folders().contains("77"))
        server->addFolder("77");
    StreamRun run(QStringLiteral("77/a.jpg"), transport, contents);
    EXPECT_TRUE(run.openAndWait());
    EXPECT_FALSE(run.succeeded());
    return run.error;
}

StreamError FTPStreamTest::folderError() {
    StreamRun run(QStringLiteral("77/"), transport);
    EXPECT_TRUE(run.openAndWait());
    EXPECT_FALSE(run.succeeded());
    return run.error;
}

std::vector<StreamEvent> uploadEvents(int canAcceptBytesEvents) {
    std::vector<StreamEvent> events{kStreamEventOpenCompleted};
    events.insert(events.end(), static_cast<std::size_t>(canAcceptBytesEvents), kStreamEventCanAcceptBytes);
    return events;
}

std::vector<StreamEvent> decisiveEvents(const std::vector<StreamEvent>& events) {
    std::vector<StreamEvent> decisive;
    for (const StreamEvent event : events) {
        if (event != kStreamEventCanAcceptBytes)
            decisive.push_back(event);
    }
    return decisive;
}

} // namespace ftp_stream_tests

namespace platform {

void PrintTo(const StreamError& error, std::ostream* out) {
    *out << "domain " << error.domain << ", error " << error.error;
}

} // namespace platform
