#include "tests/platform/StreamRun.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <atomic>
#include <thread>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::FTPDataFault;
using test_support::FTPFault;
using test_support::kFTPClosingReply;
using test_support::kFTPGreeting;
using test_support::runLoopFor;
using test_support::waitUntil;

namespace {

constexpr std::chrono::milliseconds kAWhile{100};
/// Far below any time-out, far above what a busy machine takes.
constexpr int kAtOnce = 3'000;

class FTPStreamEventsTest : public FTPStreamTest {
protected:
    /// A file whose closing reply never comes: libcurl waits for it inside a call.
    std::unique_ptr<StreamRun> uploadWithoutAnswer() {
        server->on(kFTPClosingReply, FTPFault{.silent = true}, 1);
        auto run = std::make_unique<StreamRun>(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
        EXPECT_TRUE(run->open());
        EXPECT_TRUE(waitUntil([&] { return server->receivedBytes() == 1000; }));
        runLoopFor(kAWhile);
        return run;
    }
};

TEST_F(FTPStreamEventsTest, CallbackIsNotEnteredAgainWhileItRuns) {
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(2'000'000));
    int depth = 0;
    int deepest = 0;
    run.onEvent = [&](StreamEvent event) {
        ++depth;
        deepest = std::max(deepest, depth);
        FTPWriteStream::wakeOpenStreams();
        runLoopFor(std::chrono::milliseconds{20}); // As an alert does.
        --depth;
        return event == kStreamEventHasBytesAvailable;
    };
    ASSERT_TRUE(run.openAndWait());
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(deepest, 1);
}

TEST_F(FTPStreamEventsTest, EventsThatCameDuringACallbackFollowIt) {
    server->onData({.afterBytes = 1, .then = FTPDataFault::Then::AnswerThenStall, .answer = "552 Full"});
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
    run.onEvent = [&](StreamEvent event) {
        if (event == kStreamEventOpenCompleted) {
            run.stream->write(reinterpret_cast<const std::uint8_t*>(run.contents.constData()), 500);
            EXPECT_TRUE(waitUntil([&] { return run.stream->error() == ftpError(552); }));
            EXPECT_EQ(run.events.size(), 1U);
        }
        return false;
    };
    ASSERT_TRUE(run.openAndWait());
    EXPECT_EQ(run.events, (std::vector{kStreamEventOpenCompleted, kStreamEventErrorOccurred}));
}

TEST_F(FTPStreamEventsTest, NothingComesAfterCloseWithinTheCallback) {
    for (const StreamEvent last : {kStreamEventOpenCompleted, kStreamEventCanAcceptBytes}) {
        StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
        run.onEvent = [&](StreamEvent event) {
            if (event == last)
                run.stream->close();
            return true;
        };
        ASSERT_TRUE(run.open());
        ASSERT_TRUE(waitUntil([&] { return !run.events.empty() && run.events.back() == last; }));
        const auto events = run.events;
        FTPWriteStream::wakeOpenStreams();
        runLoopFor(kAWhile);
        EXPECT_EQ(run.events, events);
    }
}

TEST_F(FTPStreamEventsTest, NothingComesAfterTheClientIsRemovedWithinTheCallback) {
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
    run.onEvent = [&](StreamEvent) {
        run.stream->setClient(0, nullptr, nullptr);
        return false;
    };
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil([&] { return !run.events.empty(); }));
    FTPWriteStream::wakeOpenStreams();
    runLoopFor(kAWhile);
    EXPECT_EQ(run.events.size(), 1U);
}

TEST_F(FTPStreamEventsTest, NothingComesAfterTheLastEvent) {
    server->addFolder("77");
    for (const char* path : {"77/", "78/"}) {
        StreamRun run(QString::fromLatin1(path), transport);
        run.closesAtEnd = false;
        ASSERT_TRUE(run.openAndWait());
        const auto events = run.events;
        FTPWriteStream::wakeOpenStreams();
        runLoopFor(kAWhile);
        EXPECT_EQ(run.events, events);
    }
}

TEST_F(FTPStreamEventsTest, LastReferenceMayBeDroppedWithinTheCallback) {
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
    const std::weak_ptr<FTPWriteStream> watched = run.stream;
    run.onEvent = [&](StreamEvent) {
        run.stream.reset();
        EXPECT_FALSE(watched.expired()); // It is the callback's argument still.
        return true;
    };
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil([&] { return watched.expired(); }));
    EXPECT_EQ(run.events.size(), 1U);
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
}

TEST_F(FTPStreamEventsTest, StreamThatIsDroppedWithoutCloseEndsItsConnection) {
    server->on("MKD", FTPFault{.silent = true});
    {
        StreamRun run(QStringLiteral("77/"), transport);
        ASSERT_TRUE(run.open());
        ASSERT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
        run.stream.reset();
    }
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
}

TEST_F(FTPStreamEventsTest, EventsOutsideTheMaskAreNotToldButTheTransferGoesOn) {
    static std::vector<StreamEvent> told;
    told.clear();
    StreamRun run(QStringLiteral("77/"), transport);
    run.stream->setClient(
        kStreamEventEndEncountered, [](FTPWriteStream*, StreamEvent event, void*) { told.push_back(event); },
        nullptr);
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil([] { return !told.empty(); }));
    EXPECT_EQ(told, std::vector{kStreamEventEndEncountered});
}

TEST_F(FTPStreamEventsTest, ClientsContextIsRetainedAndReleased) {
    struct Counts {
        int retained = 0;
        int released = 0;
    } counts;
    const StreamClientContext context{.info = &counts,
                                      .retain =
                                          [](void* info) {
                                              ++static_cast<Counts*>(info)->retained;
                                              return info;
                                          },
                                      .release = [](void* info) { ++static_cast<Counts*>(info)->released; }};
    const auto callback = [](FTPWriteStream*, StreamEvent, void*) {};
    auto stream = FTPWriteStream::create(kService + QStringLiteral("77/"), transport);
    stream->setClient(31, callback, &context);
    EXPECT_EQ(counts.retained, 1);
    stream->setClient(31, callback, &context);
    EXPECT_EQ(counts.retained, 2);
    EXPECT_EQ(counts.released, 1);
    stream->setClient(0, nullptr, nullptr);
    EXPECT_EQ(counts.released, 2);
    stream->setClient(31, callback, &context);
    stream.reset();
    EXPECT_EQ(counts.retained, counts.released);
}

TEST_F(FTPStreamEventsTest, UnscheduledStreamKeepsItsEventsUntilItIsScheduledAgain) {
    StreamRun run(QStringLiteral("77/"), transport);
    ASSERT_TRUE(run.open());
    run.stream->unschedule(RunLoop::current());
    ASSERT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    runLoopFor(kAWhile);
    EXPECT_TRUE(run.events.empty());
    run.stream->schedule(RunLoop::current());
    ASSERT_TRUE(run.wait());
    EXPECT_TRUE(run.succeeded());
}

TEST_F(FTPStreamEventsTest, StreamOfAnotherThreadIsServedOnThatThread) {
    const QByteArray contents = sampleBytes(1'000'000);
    bool succeeded = false;
    bool strayed = false;
    const std::unique_ptr<QThread> thread(QThread::create([&] {
        StreamRun run(QStringLiteral("a.jpg"), transport, contents);
        run.onEvent = [&, own = QThread::currentThread()](StreamEvent) {
            strayed = strayed || QThread::currentThread() != own;
            return false;
        };
        succeeded = run.openAndWait() && run.succeeded();
    }));
    thread->start();
    ASSERT_TRUE(waitUntil([&] { return thread->isFinished(); }));
    EXPECT_TRUE(succeeded);
    EXPECT_FALSE(strayed);
    EXPECT_TRUE(server->files().at("a.jpg") == contents);
}

TEST_F(FTPStreamEventsTest, CloseCutsTheConnectionAtOnceWhateverTheServerIsAskedFor) {
    for (const char* step : {kFTPGreeting, "PASS", "EPSV", "STOR", kFTPClosingReply}) {
        useServer({});
        server->on(step, FTPFault{.silent = true});
        StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
        ASSERT_TRUE(run.open());
        ASSERT_TRUE(waitUntil([&] {
            return step == kFTPClosingReply ? server->receivedBytes() == 1000
                   : step == kFTPGreeting   ? server->connectionCount() == 1
                                            : server->count(step) == 1;
        }));
        runLoopFor(kAWhile);
        QElapsedTimer timer;
        timer.start();
        run.stream->close();
        EXPECT_LT(timer.elapsed(), 200) << step;
        EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; })) << step;
        EXPECT_LT(timer.elapsed(), kAtOnce) << step;
    }
}

TEST_F(FTPStreamEventsTest, CloseCutsAKeptConnectionToo) {
    ASSERT_TRUE(makeFolder(QStringLiteral("77/")));
    const auto run = uploadWithoutAnswer();
    ASSERT_EQ(server->connectionCount(), 1);
    QElapsedTimer timer;
    timer.start();
    run->stream->close();
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    EXPECT_LT(timer.elapsed(), kAtOnce);
}

TEST_F(FTPStreamEventsTest, ProcessEndsAtOnceWhileLibcurlWaitsForAServer) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    QElapsedTimer timer;
    timer.start();
    EXPECT_EXIT(
        {
            const auto run = uploadWithoutAnswer();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_LT(timer.elapsed(), 10'000);
}

TEST_F(FTPStreamEventsTest, CloseCutsAnUploadThatTheServerDoesNotTake) {
    server->onData({.afterBytes = 1000, .then = FTPDataFault::Then::AnswerThenStall});
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(6'000'000));
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil([&] { return server->receivedBytes() == 1000; }));
    QElapsedTimer timer;
    timer.start();
    run.stream->close();
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    EXPECT_LT(timer.elapsed(), kAtOnce);
}

TEST_F(FTPStreamEventsTest, FileOfAClosedStreamLooksCutOffToTheServer) {
    server->setDataPace(std::chrono::milliseconds{2});
    for (int file = 0; file < 10; ++file) {
        StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(6'000'000));
        ASSERT_TRUE(run.open());
        ASSERT_TRUE(waitUntil([&] { return run.written > 0; }));
        run.stream->close();
        ASSERT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    }
    EXPECT_TRUE(server->files().empty());
}

TEST_F(FTPStreamEventsTest, StreamAfterACloseDoesNotWaitForTheSilentServerOfTheFirst) {
    const auto run = uploadWithoutAnswer();
    QElapsedTimer timer;
    timer.start();
    run->stream->close();
    EXPECT_TRUE(upload(QStringLiteral("b.jpg"), sampleBytes(1000)));
    EXPECT_LT(timer.elapsed(), kAtOnce);
    EXPECT_EQ(server->connectionCount(), 2);
}

TEST_F(FTPStreamEventsTest, CloseAfterTheConfirmationKeepsTheConnection) {
    for (int file = 0; file < 20; ++file)
        ASSERT_TRUE(upload(QStringLiteral("%1.jpg").arg(file), sampleBytes(100)));
    EXPECT_EQ(server->connectionCount(), 1);
}

TEST_F(FTPStreamEventsTest, CloseOfOneStreamLeavesAnotherAlone) {
    server->setDataPace(std::chrono::milliseconds{5});
    const QByteArray contents = sampleBytes(1'000'000);
    StreamRun kept(QStringLiteral("kept.jpg"), transport, contents);
    StreamRun closed(QStringLiteral("closed.jpg"), transport, contents);
    ASSERT_TRUE(kept.open());
    ASSERT_TRUE(closed.open());
    ASSERT_TRUE(waitUntil([&] { return kept.written > 0 && closed.written > 0; }));
    closed.stream->close();
    ASSERT_TRUE(kept.wait());
    EXPECT_TRUE(kept.succeeded());
    EXPECT_TRUE(server->files().at("kept.jpg") == contents);
}

TEST_F(FTPStreamEventsTest, WakingGivesEveryOpenStreamItsNextEventAtOnce) {
    const auto waiting = uploadWithoutAnswer(); // Here the I/O thread itself is held up.
    StreamRun behind(QStringLiteral("77/"), transport);
    StreamRun unopened(QStringLiteral("78/"), transport);
    ASSERT_TRUE(behind.open());
    QElapsedTimer timer;
    timer.start();
    std::thread([] { FTPWriteStream::wakeOpenStreams(); }).join();
    ASSERT_TRUE(waitUntil(
        [&] { return waiting->events.back() == kStreamEventHasBytesAvailable && !behind.events.empty(); }));
    EXPECT_LT(timer.elapsed(), kAtOnce);
    EXPECT_EQ(behind.events, std::vector{kStreamEventHasBytesAvailable});
    EXPECT_TRUE(unopened.events.empty());
}

TEST_F(FTPStreamEventsTest, FullBufferTakesNothingMore) {
    server->onData({.afterBytes = 0, .then = FTPDataFault::Then::AnswerThenStall});
    const QByteArray contents = sampleBytes(6'000'000);
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(contents.constData());
    StreamRun run(QStringLiteral("a.jpg"), transport, contents);
    run.onEvent = [](StreamEvent) { return true; };
    ASSERT_TRUE(run.open());
    ASSERT_TRUE(waitUntil([&] { return run.events == uploadEvents(1); }));
    EXPECT_EQ(run.stream->write(bytes, static_cast<std::size_t>(contents.size())),
              static_cast<std::int64_t>(FTPWriteStream::kBufferSize));
    ASSERT_TRUE(waitUntil([&] { // Until the systems' own buffers are full too.
        const auto taken = run.stream->write(bytes, FTPWriteStream::kBufferSize);
        runLoopFor(kAWhile);
        return taken == 0;
    }));
}

TEST_F(FTPStreamEventsTest, StreamsMayBeClosedAtAnyMoment) {
    const QByteArray contents = sampleBytes(300'000);
    for (int round = 0; round < 60; ++round) {
        StreamRun run(round % 3 == 0 ? QStringLiteral("%1/").arg(round) : QStringLiteral("a.jpg"), transport,
                      round % 3 == 0 ? QByteArray() : contents);
        int left = round / 3 % 5;
        run.onEvent = [&](StreamEvent) {
            if (left-- == 0)
                run.stream->close();
            return false;
        };
        ASSERT_TRUE(run.open());
        runLoopFor(std::chrono::milliseconds{round % 7});
    }
    EXPECT_TRUE(upload(QStringLiteral("last.jpg"), contents));
    EXPECT_TRUE(server->files().at("last.jpg") == contents);
}

} // namespace
