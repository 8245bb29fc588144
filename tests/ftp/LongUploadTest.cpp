#include "tests/ftp/FTPStage.h"

#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>

#include <algorithm>

using namespace test_support;

namespace ftp_tests {

namespace {

constexpr int kFiles = 3000;
constexpr qint64 kFileSize = 2 * 1024 * 1024;
/// By then all that is kept for the next file is there.
constexpr int kFilesOfWarmingUp = 100;
constexpr qint64 kFewFiles = 8;
constexpr std::chrono::minutes kLongDeadline{5};

qint64 residentBytes() {
    constexpr qint64 kPage = 4096;
    QFile statistics(QStringLiteral("/proc/self/statm"));
    return statistics.open(QIODevice::ReadOnly)
               ? statistics.readAll().split(' ').value(1).toLongLong() * kPage
               : 0;
}

qsizetype openDescriptors() {
    return QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size();
}

class LongUpload : public FTPStage {
protected:
    /// A file that takes no room on the disk.
    void addSparseImage(int number) {
        QFile file(addImage(QStringLiteral("%1.jpg").arg(number), {}));
        EXPECT_TRUE(file.resize(kFileSize));
        plugIn->totalBytes += static_cast<std::uint64_t>(kFileSize);
    }
};

TEST_F(LongUpload, OfSixGigabytesCountsThemAllInTheMemoryOfOneFile) {
    // The server takes everything, keeps nothing and confirms.
    server->onData({.then = FTPDataFault::Then::DiscardThenAnswer, .answer = "226 Got it"});
    for (int number = 0; number < kFiles; ++number)
        addSparseImage(number);
    qint64 warm = 0;
    qint64 most = 0;
    qsizetype descriptors = 0;
    QEventLoop loop;
    host.onCall = [&](const QString& call) {
        if (call == kUploadEnded || call == kUploadBroken)
            loop.quit();
        if (plugIn->numUploaded < kFilesOfWarmingUp)
            return;
        most = std::max(most, residentBytes());
        if (plugIn->numUploaded == kFilesOfWarmingUp) {
            warm = most;
            descriptors = openDescriptors();
        }
    };
    startUploads();
    // An event loop of its own: waiting for a condition looks only every few milliseconds.
    QTimer::singleShot(kLongDeadline, &loop, &QEventLoop::quit);
    loop.exec();
    EXPECT_EQ(host.count(kUploadEnded), 1);
    host.onCall = nullptr;
    EXPECT_LT(most - warm, kFewFiles * kFileSize);
    EXPECT_GT(descriptors, 0);
    EXPECT_TRUE(waitUntil([&] { return openDescriptors() <= descriptors; }));

    EXPECT_EQ(progress().totalValue, std::size_t{kFiles} * kFileSize);
    EXPECT_EQ(progress().currentValue, progress().totalValue);
    EXPECT_EQ(plugIn->numUploaded, kFiles);
    EXPECT_EQ(server->connectionCount(), 1);
    EXPECT_EQ(server->count("EPSV") + server->count("STOR"), 2 * kFiles) << "two commands a file";
    EXPECT_TRUE(QDir(plugIn->tempDirectoryPath).isEmpty());
    expectNoAlert();
}

} // namespace

} // namespace ftp_tests
