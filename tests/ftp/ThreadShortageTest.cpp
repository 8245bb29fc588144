// What becomes of the FTP stages where the system has no thread left for them. A program of its own: once
// the streams have their thread, they need no other.

#include "tests/support/ThreadShortage.h"

#include "tests/ftp/FTPStage.h"

#include <QtCore/QFile>

using namespace test_support;

namespace ftp_tests {

namespace {

using ThreadShortageTest = FTPStage;

TEST_F(ThreadShortageTest, FolderIsAFailedOpenAndThrowsNothingAtTheHost) {
    addImage(QStringLiteral("a.jpg"), "x");
    const ThreadShortage shortage;
    EXPECT_NO_THROW(finishHandOver());
    expectAlerts({{kCouldNotConnect, kCommunicationError}});
    EXPECT_EQ(host.calls(), QStringList({QStringLiteral("alert ") + kCouldNotConnect, kChainBroken}));
}

TEST_F(ThreadShortageTest, FileIsAFailedOpenAndThrowsNothingAtTheHost) {
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    const ThreadShortage shortage;
    EXPECT_NO_THROW(startUploads());
    expectAlerts({{readingError(QStringLiteral("a.jpg")), QString()}});
    EXPECT_EQ(host.calls(),
              QStringList({kChainEnded, QStringLiteral("alert ") + readingError(QStringLiteral("a.jpg")),
                           kCancelled, kUploadBroken}));
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(*plugIn->exportedImagePaths, QStringList(path));
}

TEST_F(ThreadShortageTest, CancelThrowsNothingAtTheHost) {
    const ThreadShortage shortage;
    EXPECT_NO_THROW(plugIn->exportManagerShouldCancelExport());
    EXPECT_EQ(host.calls(), QStringList(kCancelled));
}

TEST_F(ThreadShortageTest, OnceItIsOverTheNextExportGoes) {
    addImage(QStringLiteral("a.jpg"), "x");
    {
        const ThreadShortage shortage;
        finishHandOver();
    }
    EXPECT_EQ(host.count(kChainBroken), 1);
    finishHandOver();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(uploaded("a.jpg"), "x");
}

} // namespace

} // namespace ftp_tests
