#include "tests/ftp/FTPStage.h"

#include <QtCore/QElapsedTimer>

using namespace test_support;

namespace ftp_tests {

namespace {

constexpr int kMostMilliseconds = 200;

/// A server that has fallen silent must not make the user wait for the idle time-out.
class CancelLatency : public FTPStage {
protected:
    void SetUp() override {
        FTPStage::SetUp();
        addImage(QStringLiteral("a.jpg"), QByteArray(600'000, 'a'));
        plugIn->showProgressBar();
    }

    void expectQuickEnd(const QString& ended) {
        QElapsedTimer clock;
        clock.start();
        plugIn->exportManagerShouldCancelExport();
        EXPECT_EQ(host.count(kCancelled), 1);
        EXPECT_TRUE(waitUntil([&] { return host.count(ended) == 1 && !plugIn->progressWindow; }));
        EXPECT_LT(clock.elapsed(), kMostMilliseconds);
        expectNoAlert();
    }
};

TEST_F(CancelLatency, SilentFolderIsLeftAtOnce) {
    server->on("MKD", {.silent = true});
    finishHandOver();
    ASSERT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    expectQuickEnd(kChainBroken);
}

TEST_F(CancelLatency, SilentConnectionIsLeftAtOnce) {
    server->on(kFTPGreeting, {.silent = true});
    finishHandOver();
    ASSERT_TRUE(waitUntil([&] { return server->connectionCount() == 1; }));
    expectQuickEnd(kChainBroken);
}

TEST_F(CancelLatency, FileThatTheServerTakesNoMoreOfIsLeftAtOnce) {
    server->onData({.afterBytes = 1000, .then = FTPDataFault::Then::AnswerThenStall});
    startUploads();
    ASSERT_TRUE(waitUntil([&] { return server->receivedBytes() == 1000; }));
    expectQuickEnd(kUploadBroken);
}

TEST_F(CancelLatency, UnconfirmedFileIsLeftAtOnce) {
    server->on(kFTPClosingReply, {.silent = true});
    startUploads();
    ASSERT_TRUE(waitUntil([&] { return server->receivedBytes() == 600'000; }));
    expectQuickEnd(kUploadBroken);
}

} // namespace

} // namespace ftp_tests
