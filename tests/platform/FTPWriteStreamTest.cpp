#include "tests/platform/StreamRun.h"

#include <QtCore/QElapsedTimer>

using namespace ftp_stream_tests;
using namespace platform;
using test_support::Cut;
using test_support::FTPFault;
using test_support::waitUntil;

namespace {

using FTPWriteStreamTest = FTPStreamTest;
using Lines = QList<QByteArray>;

TEST_F(FTPWriteStreamTest, FolderIsMadeWithOneCommandAfterTheLogin) {
    StreamRun run(QStringLiteral("77/"), transport);
    ASSERT_TRUE(run.openAndWait());
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.events, (std::vector{kStreamEventOpenCompleted, kStreamEventEndEncountered}));
    EXPECT_EQ(run.error, kNoError);
    EXPECT_EQ(server->commands(), (Lines{"USER ann", "PASS secret", "PWD", "MKD 77"}));
    EXPECT_EQ(server->folders(), Lines{"77"});
}

TEST_F(FTPWriteStreamTest, FileIsStoredRelativeToTheLoginFolder) {
    server->addFolder("77");
    server->addFolder("77/A");
    const QByteArray contents = sampleBytes(100'000);
    StreamRun run(QStringLiteral("77/A/name.jpg"), transport, contents);
    ASSERT_TRUE(run.openAndWait());
    EXPECT_TRUE(run.succeeded());
    EXPECT_EQ(run.events, uploadEvents(2));
    EXPECT_EQ(server->commands(),
              (Lines{"USER ann", "PASS secret", "PWD", "EPSV", "TYPE I", "STOR 77/A/name.jpg"}));
    EXPECT_EQ(server->files().at("77/A/name.jpg"), contents);
}

TEST_F(FTPWriteStreamTest, KeptConnectionCostsOneCommandAFolderAndTwoAFile) {
    ASSERT_TRUE(makeFolder(QStringLiteral("77/")));
    ASSERT_TRUE(makeFolder(QStringLiteral("77/A/")));
    ASSERT_TRUE(upload(QStringLiteral("77/A/1.jpg"), sampleBytes(10, 1)));
    ASSERT_TRUE(upload(QStringLiteral("77/A/2.jpg"), sampleBytes(300'000, 2)));
    ASSERT_TRUE(upload(QStringLiteral("77/A/3.jpg"), sampleBytes(20, 3)));
    EXPECT_EQ(server->connectionCount(), 1);
    EXPECT_EQ(server->commands(0),
              (Lines{"USER ann", "PASS secret", "PWD", "MKD 77", "MKD 77/A", "EPSV", "TYPE I",
                     "STOR 77/A/1.jpg", "EPSV", "STOR 77/A/2.jpg", "EPSV", "STOR 77/A/3.jpg"}));
}

TEST_F(FTPWriteStreamTest, ThroughputSanity) {
    const QByteArray contents = sampleBytes(50'000'000);
    QElapsedTimer timer;
    timer.start();
    ASSERT_TRUE(upload(QStringLiteral("a.jpg"), contents));
    std::cout << timer.elapsed() << " ms\n";
    EXPECT_TRUE(server->files().at("a.jpg") == contents);
}

} // namespace
