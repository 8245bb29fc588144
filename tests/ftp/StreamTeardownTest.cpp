#include "ftp/DirectoryCreation.h"
#include "ftp/FTPStreams.h"
#include "ftp/UploadQueue.h"
#include "tests/ftp/FTPStage.h"
#include "tests/ftp/StreamSpy.h"

#include <QtCore/QFile>

using namespace test_support;

namespace ftp_tests {

namespace {

const QStringList kStart = {QStringLiteral("setClient"), QStringLiteral("schedule"), QStringLiteral("open")};
const QStringList kFolderEnd = {QStringLiteral("unschedule"), QStringLiteral("removeClient"),
                                QStringLiteral("close")};
const QStringList kUploadSuccess = {QStringLiteral("removeClient"), QStringLiteral("close"),
                                    QStringLiteral("unschedule")};
const QStringList& kUploadFailure = kFolderEnd;

class StreamTeardown : public FTPStage {
protected:
    StreamTeardown() {
        host.onCall = [this](const QString& call) { spy.note(call); };
    }

    void setFolders(std::initializer_list<QString> folders) {
        plugIn->ftpPaths->assign(folders.begin(), folders.end());
    }

    StreamSpy spy;
};

TEST_F(StreamTeardown, FolderThatWasMadeIsTakenDownBeforeTheNextIsBegun) {
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    finishHandOver();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(spy.calls(),
              kStart + kFolderEnd + kStart + kFolderEnd + QStringList({kChainEnded, kUploadEnded}))
        << "the completion is posted, not waited for";
}

TEST_F(StreamTeardown, FolderThatExistedWaitsForTheNextToBeBegun) {
    server->addFolder("77");
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    finishHandOver();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(spy.calls(),
              kStart + kStart + kFolderEnd + kFolderEnd + QStringList({kChainEnded, kUploadEnded}))
        << "its completion has ended before its stream is taken down";
}

TEST_F(StreamTeardown, FailedFolderIsTakenDownAfterItsAlert) {
    server->on("MKD", "521 No");
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    EXPECT_TRUE(waitForCall(kChainBroken));
    EXPECT_EQ(spy.calls(), kStart + QStringList(QStringLiteral("alert ") + kCouldNotConnect) + kFolderEnd +
                               QStringList(kChainBroken));
}

TEST_F(StreamTeardown, FolderWhoseOpenFailsIsTakenDownToo) {
    logIn(QStringLiteral("ann\n"));
    host.credentials.addInternetPassword(plugIn->keychainAttributes(QStringLiteral("ann\n")), kPassword,
                                         nullptr);
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    EXPECT_EQ(spy.calls(), kStart + QStringList(QStringLiteral("alert ") + kCouldNotConnect) + kFolderEnd +
                               QStringList(kChainBroken));
}

TEST_F(StreamTeardown, UploadedFileTakesItsStreamDownBeforeTheFileIsDeletedAndTheNextIsBegun) {
    addImage(QStringLiteral("a.jpg"), "x");
    addImage(QStringLiteral("b.jpg"), "y");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(spy.calls(), QStringList(kChainEnded) + kStart + kUploadSuccess +
                               QStringList(QStringLiteral("imageUploaded a.jpg")) + kStart + kUploadSuccess +
                               QStringList({QStringLiteral("imageUploaded b.jpg"), kUploadEnded}));
}

TEST_F(StreamTeardown, FailedUploadIsTakenDownAfterItsAlertAndTheCancel) {
    server->on("STOR", "553 No");
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    EXPECT_EQ(
        spy.calls(),
        QStringList(kChainEnded) + kStart +
            QStringList({QStringLiteral("alert ") + uploadingError(QStringLiteral("a.jpg")), kCancelled}) +
            kUploadFailure + QStringList(kUploadBroken));
}

TEST_F(StreamTeardown, FileWhoseOpenFailsIsTakenDownBeforeItsAlert) {
    logIn(QStringLiteral("ann\n"));
    host.credentials.addInternetPassword(plugIn->keychainAttributes(QStringLiteral("ann\n")), kPassword,
                                         nullptr);
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_EQ(spy.calls(), QStringList(kChainEnded) + kStart + kUploadFailure +
                               QStringList({QStringLiteral("alert ") + readingError(QStringLiteral("a.jpg")),
                                            kCancelled, kUploadBroken}));
}

TEST_F(StreamTeardown, ClientRefusedForAFolderStopsTheStageSilently) {
    spy.refuseClients();
    setFolders({QStringLiteral("77/")});
    finishHandOver();
    runLoopFor(std::chrono::milliseconds(50));
    EXPECT_EQ(spy.calls(), QStringList({QStringLiteral("setClient"), kChainBroken}));
    EXPECT_EQ(server->connectionCount(), 0);
}

TEST_F(StreamTeardown, ClientRefusedForAFileStopsTheQueueSilently) {
    spy.refuseClients();
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    runLoopFor(std::chrono::milliseconds(50));
    EXPECT_EQ(spy.calls(), QStringList({kChainEnded, QStringLiteral("setClient"), kUploadBroken}));
    EXPECT_TRUE(QFile::exists(path));
    EXPECT_EQ(server->connectionCount(), 0);
}

TEST_F(StreamTeardown, RecordWithoutMemoryIsAnAssertionFailureThatSaysSo) {
    spy.failNextAllocation(sizeof(FileUploadInfo));
    try {
        allocateStreamRecord<FileUploadInfo>();
        FAIL() << "nothing was raised";
    } catch (const InternalAssertionFailure& failure) {
        EXPECT_STREQ(failure.what(), "Ran Out of Memory");
    }
}

TEST_F(StreamTeardown, FolderWithoutMemoryRaisesTheAssertion) {
    spy.failNextAllocation(sizeof(DirectoryCreationInfo));
    EXPECT_THROW(plugIn->createPath(QStringLiteral("77/"), &Quillmark::createdFTPDirectory),
                 InternalAssertionFailure);
    EXPECT_TRUE(spy.calls().isEmpty()) << "no stream was begun";
}

TEST_F(StreamTeardown, FolderWithoutMemoryEndsTheStageAndThrowsNothingAtTheHost) {
    setFolders({QStringLiteral("77/")});
    spy.failNextAllocation(sizeof(DirectoryCreationInfo));
    EXPECT_NO_THROW(finishHandOver());
    EXPECT_TRUE(spy.hasFailedAnAllocation());
    EXPECT_EQ(spy.calls(), QStringList(kChainBroken));
    expectNoAlert();
}

TEST_F(StreamTeardown, LaterFolderWithoutMemoryThrowsNothingAtTheRunLoop) {
    setFolders({QStringLiteral("77/"), QStringLiteral("77/Ceremony/")});
    finishHandOver();
    spy.failNextAllocation(sizeof(DirectoryCreationInfo));
    EXPECT_TRUE(waitForCall(kChainBroken));
    EXPECT_TRUE(spy.hasFailedAnAllocation());
    EXPECT_EQ(plugIn->ftpPaths->size(), 1U);
    expectNoAlert();
}

TEST_F(StreamTeardown, FileWithoutMemoryEndsTheQueueAndThrowsNothingAtTheHost) {
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    spy.failNextAllocation(sizeof(FileUploadInfo));
    EXPECT_NO_THROW(startUploads());
    EXPECT_TRUE(spy.hasFailedAnAllocation());
    EXPECT_EQ(spy.calls(), QStringList({kChainEnded, kUploadBroken}));
    EXPECT_TRUE(QFile::exists(path));
    expectNoAlert();
}

TEST_F(StreamTeardown, LaterFileWithoutMemoryThrowsNothingAtTheStream) {
    addImage(QStringLiteral("a.jpg"), "x");
    const QString second = addImage(QStringLiteral("b.jpg"), "y");
    startUploads();
    spy.failNextAllocation(sizeof(FileUploadInfo));
    EXPECT_TRUE(waitForCall(kUploadBroken));
    EXPECT_TRUE(spy.hasFailedAnAllocation());
    EXPECT_EQ(plugIn->numUploaded, 1);
    EXPECT_EQ(*plugIn->exportedImagePaths, QStringList(second));
    expectNoAlert();
}

} // namespace

} // namespace ftp_tests
