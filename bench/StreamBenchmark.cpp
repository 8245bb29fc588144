// How fast a stream sends a file to a server on loopback that keeps nothing, by the file's size and that of
// the writes.

#include "bench/FTPSink.h"
#include "platform/FTPWriteStream.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>

#include <benchmark/benchmark.h>

#include <algorithm>

using platform::FTPWriteStream;
using platform::StreamEvent;

namespace {

/// Sends one file: at each event as many bytes as one write takes, as uploads do.
class Upload {
public:
    Upload(const platform::Transport& transport, const QByteArray& contents, std::int64_t writeSize)
        : contents_(contents)
        , writeSize_(writeSize)
        , stream_(FTPWriteStream::create(QStringLiteral("ftp://ftp.quillmark.example:21/a.jpg"), transport)) {
        stream_->setExpectedLength(static_cast<std::uint64_t>(contents.size()));
        const platform::StreamClientContext context{.info = this};
        stream_->setClient(platform::kStreamEventCanAcceptBytes | platform::kStreamEventErrorOccurred,
                           &Upload::callback, &context);
        stream_->schedule(platform::RunLoop::current());
    }
    ~Upload() {
        stream_->setClient(0, nullptr, nullptr);
        stream_->close();
    }
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    bool run() {
        if (stream_->open())
            loop_.exec();
        return isConfirmed_;
    }

private:
    static void callback(FTPWriteStream*, StreamEvent event, void* info) {
        static_cast<Upload*>(info)->handle(event);
    }

    void handle(StreamEvent event) {
        const std::int64_t rest = contents_.size() - written_;
        isConfirmed_ = event == platform::kStreamEventCanAcceptBytes && rest == 0;
        if (event == platform::kStreamEventErrorOccurred || isConfirmed_)
            return loop_.quit();
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(contents_.constData()) + written_;
        const auto count = stream_->write(bytes, static_cast<std::size_t>(std::min(rest, writeSize_)));
        if (count < 0)
            return loop_.quit();
        written_ += count;
    }

    const QByteArray& contents_;
    const std::int64_t writeSize_;
    const std::shared_ptr<FTPWriteStream> stream_;
    QEventLoop loop_;
    std::int64_t written_ = 0;
    bool isConfirmed_ = false;
};

void send(benchmark::State& state, std::int64_t fileSize, std::int64_t writeSize) {
    const bench::FTPSink sink;
    platform::Transport transport;
    transport.connectTo = QStringLiteral("ftp.quillmark.example:21:127.0.0.1:%1").arg(sink.port());
    const QByteArray contents(fileSize, 'x');
    for ([[maybe_unused]] const auto iteration : state) {
        if (!Upload(transport, contents, writeSize).run())
            return state.SkipWithError("not uploaded");
    }
    state.SetBytesProcessed(state.iterations() * fileSize);
}

constexpr std::int64_t kKilobyte = 1000;
constexpr std::int64_t kMegabyte = 1000 * kKilobyte;

void registerSend(const char* name, std::int64_t fileSize, std::int64_t writeSize) {
    benchmark::RegisterBenchmark(name, send, fileSize, writeSize)
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    registerSend("100 KB, 4 KB a write", 100 * kKilobyte, 4 * kKilobyte);
    registerSend("100 KB, 100 KB a write", 100 * kKilobyte, 100 * kKilobyte);
    registerSend("100 MB, 4 KB a write", 100 * kMegabyte, 4 * kKilobyte);
    registerSend("100 MB, 64 KB a write", 100 * kMegabyte, 64 * kKilobyte);
    registerSend("100 MB, 1 MB a write", 100 * kMegabyte, kMegabyte);
    benchmark::RunSpecifiedBenchmarks();
}
