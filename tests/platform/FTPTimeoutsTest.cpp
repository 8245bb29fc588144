#include "tests/platform/StreamRun.h"

#include <QtCore/QElapsedTimer>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::FTPDataFault;
using test_support::FTPFault;
using test_support::kFTPClosingReply;
using test_support::kFTPGreeting;

namespace {

constexpr qsizetype kLongFile = 16'000'000;

/// A stream gives up after a second without traffic.
class FTPTimeoutsTest : public FTPStreamTest {
protected:
    FTPTimeoutsTest() { transport.idleTimeout = std::chrono::seconds{1}; }

    /// The error after about that second, and not much later.
    void expectTimeout(const StreamError& error) {
        EXPECT_EQ(error, posixError(ETIMEDOUT));
        EXPECT_GE(timer.elapsed(), 900);
        EXPECT_LT(timer.elapsed(), 8'000);
    }

    QElapsedTimer timer;
};

class FTPSilenceTest : public FTPTimeoutsTest, public testing::WithParamInterface<const char*> {};

TEST_P(FTPSilenceTest, SilentServerIsAnErrorInsteadOfAHang) {
    server->on(GetParam(), FTPFault{.silent = true});
    timer.start();
    expectTimeout(GetParam() == QByteArray("MKD") ? folderError() : uploadError());
}

INSTANTIATE_TEST_SUITE_P(AtEachStep, FTPSilenceTest,
                         testing::Values(kFTPGreeting, "USER", "PASS", "PWD", "MKD", "EPSV", "TYPE", "STOR",
                                         kFTPClosingReply),
                         [](const auto& parameter) {
                             QByteArray name(parameter.param);
                             return name.replace("(", "").replace(")", "").replace(" ", "").toStdString();
                         });

TEST_F(FTPTimeoutsTest, ServerThatTakesNoMoreBytesIsAnError) {
    server->onData({.afterBytes = 100'000, .then = FTPDataFault::Then::AnswerThenStall});
    timer.start();
    expectTimeout(uploadError(sampleBytes(kLongFile)));
}

TEST_F(FTPTimeoutsTest, ClientThatWritesNothingIsAnError) {
    timer.start();
    StreamRun run(QStringLiteral("a.jpg"), transport, sampleBytes(1000));
    run.onEvent = [](StreamEvent event) { return event == kStreamEventCanAcceptBytes; };
    ASSERT_TRUE(run.openAndWait());
    expectTimeout(run.error);
}

TEST_F(FTPTimeoutsTest, FileOfWhichOnlyAPartWasWrittenLooksCutOffToTheServer) {
    const QByteArray contents = sampleBytes(100'000);
    timer.start();
    StreamRun run(QStringLiteral("a.jpg"), transport, contents);
    run.onEvent = [&](StreamEvent event) {
        if (event == kStreamEventCanAcceptBytes && run.written == 0)
            run.written =
                run.stream->write(reinterpret_cast<const std::uint8_t*>(contents.constData()), 50'000);
        return event == kStreamEventCanAcceptBytes;
    };
    ASSERT_TRUE(run.openAndWait());
    expectTimeout(run.error);
    ASSERT_TRUE(test_support::waitUntil([&] { return server->openConnectionCount() == 0; }));
    EXPECT_EQ(server->receivedBytes(), 50'000U);
    EXPECT_TRUE(server->files().empty());
}

TEST_F(FTPTimeoutsTest, ReplyThatDripsForEverIsAnError) {
    server->on("MKD", FTPFault{.answer = QByteArray("257-dripping\n").repeated(5000), .inPieces = true});
    timer.start();
    expectTimeout(folderError());
}

TEST_F(FTPTimeoutsTest, SlowRepliesAreWaitedForHoweverLongAllOfThemTake) {
    for (const char* step : {kFTPGreeting, "USER", "PASS", "PWD", "EPSV", "STOR", kFTPClosingReply})
        server->on(step, FTPFault{.delay = std::chrono::milliseconds{500}});
    timer.start();
    EXPECT_TRUE(upload(QStringLiteral("a.jpg"), sampleBytes(1000)));
    EXPECT_GE(timer.elapsed(), 3'400);
}

TEST_F(FTPTimeoutsTest, SlowUploadGoesOnAsLongAsBytesMove) {
    server->setDataPace(std::chrono::milliseconds{20}, 8 * 1024);
    const QByteArray contents = sampleBytes(1'000'000);
    timer.start();
    EXPECT_TRUE(upload(QStringLiteral("a.jpg"), contents));
    EXPECT_GE(timer.elapsed(), 2'000);
    EXPECT_TRUE(server->files().at("a.jpg") == contents);
}

TEST_F(FTPTimeoutsTest, NextStreamAfterATimeoutHasAConnectionOfItsOwn) {
    server->addFolder("77");
    server->on("STOR", FTPFault{.silent = true}, 1);
    EXPECT_EQ(uploadError(), posixError(ETIMEDOUT));
    EXPECT_TRUE(upload(QStringLiteral("77/b.jpg"), sampleBytes(1000)));
    EXPECT_EQ(server->connectionCount(), 2);
}

} // namespace
