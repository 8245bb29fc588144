#include "tests/ftp/FTPStage.h"
#include "tests/support/DelayingFTPProxy.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>

using namespace test_support;

namespace ftp_tests {

namespace {

constexpr int kFiles = 500;
constexpr int kFileSize = 100'000;
constexpr std::chrono::milliseconds kEachWay{25};
constexpr double kMostRoundTrips = 4.2;
constexpr std::chrono::minutes kLongDeadline{3};

using RoundTrips = FTPStage;

/// A server far away: what an upload costs is the round trips that it waits for.
TEST_F(RoundTrips, OfAFileAreFewAndItsCommandsTwo) {
    const DelayingFTPProxy proxy(server->port(), kEachWay);
    useServer(proxy.connectTo());
    for (int number = 0; number < kFiles; ++number)
        addImage(QStringLiteral("%1.jpg").arg(number), QByteArray(kFileSize, 'x'));

    QEventLoop loop;
    host.onCall = [&](const QString& call) {
        if (call == kUploadEnded || call == kUploadBroken)
            loop.quit();
    };
    QElapsedTimer clock;
    clock.start();
    startUploads();
    // An event loop of its own: waiting for a condition looks only every few milliseconds.
    QTimer::singleShot(kLongDeadline, &loop, &QEventLoop::quit);
    loop.exec();
    const std::chrono::duration<double, std::milli> elapsed(std::chrono::milliseconds(clock.elapsed()));
    host.onCall = nullptr;

    ASSERT_EQ(host.count(kUploadEnded), 1);
    EXPECT_EQ(server->files().size(), std::size_t{kFiles});
    const double roundTrips = elapsed / (2 * kEachWay) / kFiles;
    RecordProperty("RoundTripsPerFile", std::to_string(roundTrips));
    EXPECT_LE(roundTrips, kMostRoundTrips);
    EXPECT_GT(roundTrips, 1) << "the proxy does not delay";

    QList<QByteArray> expected{"USER ann", "PASS secret", "PWD"};
    for (int number = 0; number < kFiles; ++number) {
        expected << "EPSV";
        if (number == 0)
            expected << "TYPE I";
        expected << "STOR 77/Ceremony/" + QByteArray::number(number) + ".jpg";
    }
    EXPECT_TRUE(server->commands() == expected);
    EXPECT_EQ(server->connectionCount(), 1);
}

} // namespace

} // namespace ftp_tests
