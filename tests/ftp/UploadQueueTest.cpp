#include "ftp/UploadQueue.h"

#include "ftp/FTPStreams.h"
#include "tests/ftp/FTPStage.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

using namespace test_support;

namespace ftp_tests {

namespace {

const QString kUsernameError = QStringLiteral("There was an error with your username.");

class UploadQueue : public FTPStage {
protected:
    /// The record of a file, with a stream that was never opened: events are given to its callback by hand.
    FileUploadInfo* unopenedUpload(const QByteArray& contents) {
        addImage(QStringLiteral("a.jpg"), contents);
        plugIn->uploadStartTime = std::chrono::steady_clock::now();
        auto* const info = allocateStreamRecord<FileUploadInfo>();
        info->writeStream = platform::FTPWriteStream::create(
            QStringLiteral("ftp://ftp.quillmark.example:21/77/Ceremony/a.jpg"),
            plugIn->environment->configuration.transport);
        info->owner = plugIn;
        info->fileData = contents;
        return info;
    }

    static void give(FileUploadInfo* info, platform::StreamEvent event) {
        UploadCallback(info->writeStream.get(), event, info);
    }

    bool stillQueued(const QString& path) const {
        return plugIn->exportedImagePaths->contains(path) && QFile::exists(path) &&
               plugIn->exportFTPFolders->size() == plugIn->exportedImagePaths->size();
    }

    void expectReadingErrorAndCancel(const QString& fileName) {
        EXPECT_TRUE(waitForCall(kUploadBroken));
        expectAlerts({{readingError(fileName), QString()}});
        EXPECT_EQ(host.count(kCancelled), 1);
        EXPECT_FALSE(Quillmark::shouldCancelFTPActivity()) << "the host is asked, nothing else is cancelled";
        EXPECT_EQ(server->count("STOR"), 0);
    }
};

TEST_F(UploadQueue, EmptyQueueSendsTheFinishingRequestAfterThreeSecondsAndUploadsNothing) {
    QElapsedTimer clock;
    clock.start();
    plugIn->_uploadNextImage();
    EXPECT_EQ(host.count(kUploadEnded), 1);
    EXPECT_FALSE(plugIn->finishThreadRef);
    EXPECT_TRUE(waitUntil([&] { return plugIn->finishThreadRef != nullptr; }));
    EXPECT_GE(clock.elapsed(), 2990);
    EXPECT_LT(clock.elapsed(), 3900);
    EXPECT_EQ(server->connectionCount(), 0);
    expectNoAlert();
}

TEST_F(UploadQueue, AbsentQueueIsAnEmptyOne) {
    plugIn->exportedImagePaths = nullptr;
    plugIn->_uploadNextImage();
    EXPECT_EQ(host.count(kUploadEnded), 1);
}

TEST_F(UploadQueue, FileGoesWholeAndIsDeletedAndCounted) {
    const QByteArray contents(700'000, 'q');
    const QString path = addImage(QStringLiteral("a.jpg"), contents);
    const QString other = addImage(QStringLiteral("b.jpg"), "b");
    host.onCall = [&](const QString& call) {
        if (call == QStringLiteral("imageUploaded a.jpg")) {
            EXPECT_FALSE(QFile::exists(path));
            EXPECT_TRUE(QFile::exists(other));
            EXPECT_EQ(plugIn->numUploaded, 1);
            EXPECT_EQ(*plugIn->exportedImagePaths, QStringList(other));
            EXPECT_EQ(uploaded("a.jpg"), contents);
        }
    };
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(plugIn->numUploaded, 2);
    EXPECT_FALSE(QFile::exists(other));
    EXPECT_EQ(uploaded("b.jpg"), "b");
    EXPECT_TRUE(plugIn->exportFTPFolders->isEmpty());
    EXPECT_EQ(progress().currentValue, 700'001U);
    EXPECT_EQ(progress().totalValue, 700'001U);
    expectNoAlert();
}

TEST_F(UploadQueue, FilesGoOneAfterAnotherEachIntoItsFolder) {
    addImage(QStringLiteral("a.jpg"), "1", QStringLiteral("77/Abbey/"));
    addImage(QStringLiteral("b.jpg"), "22", QStringLiteral("77/Garden/"));
    addImage(QStringLiteral("c.jpg"), "333", QStringLiteral("77/Abbey/"));
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_EQ(uploaded("a.jpg", "77/Abbey"), "1");
    EXPECT_EQ(uploaded("b.jpg", "77/Garden"), "22");
    EXPECT_EQ(uploaded("c.jpg", "77/Abbey"), "333");
    EXPECT_EQ(server->connectionCount(), 1);
    EXPECT_EQ(host.calls(), QStringList({kChainEnded, QStringLiteral("imageUploaded a.jpg"),
                                         QStringLiteral("imageUploaded b.jpg"),
                                         QStringLiteral("imageUploaded c.jpg"), kUploadEnded}));
}

TEST_F(UploadQueue, NamesBeyondASCIIAndWithSpecialCharactersArriveAsTheyAre) {
    const QStringList names = {QStringLiteral("two words.jpg"),
                               QString::fromUtf8("Gr\xC3\xBC\xC3\x9F"
                                                 "e.jpg"),
                               QString::fromUtf8("\xE5\x86\x99\xE7\x9C\x9F.jpg"),
                               QStringLiteral("50% #1 ?&'\"%20.jpg")};
    for (const QString& name : names)
        addImage(name, name.toUtf8(), QString::fromUtf8("77/F\xC3\xAAte & #2/"));
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    for (const QString& name : names)
        EXPECT_EQ(uploaded(name.toUtf8(), "77/F\xC3\xAAte & #2"), name.toUtf8());
    expectNoAlert();
}

TEST_F(UploadQueue, EmptyFileIsToldAndTheHostIsAskedToCancel) {
    const QString path = addImage(QStringLiteral("empty.jpg"), {});
    addImage(QStringLiteral("b.jpg"), "b");
    startUploads();
    expectReadingErrorAndCancel(QStringLiteral("empty.jpg"));
    EXPECT_TRUE(stillQueued(path));
}

TEST_F(UploadQueue, MissingFileIsToldAndTheHostIsAskedToCancel) {
    QFile::remove(addImage(QStringLiteral("gone %@.jpg"), "x"));
    startUploads();
    expectReadingErrorAndCancel(QStringLiteral("gone %@.jpg"));
}

TEST_F(UploadQueue, FileTooLongForTheTransfersCountIsNotEvenRead) {
    const QString path = addImage(QStringLiteral("huge.jpg"), "x");
    QFile file(path);
    ASSERT_TRUE(file.resize(qint64{1} << 32));
    startUploads();
    expectReadingErrorAndCancel(QStringLiteral("huge.jpg"));
    EXPECT_TRUE(stillQueued(path));
}

TEST_F(UploadQueue, FolderThatYieldsNoStreamIsAReadingError) {
    const QString path = addImage(QStringLiteral("a.jpg"), "x", QStringLiteral("77/../"));
    plugIn->ftpPaths->clear();
    finishHandOver();
    expectReadingErrorAndCancel(QStringLiteral("a.jpg"));
    EXPECT_TRUE(stillQueued(path));
}

TEST_F(UploadQueue, FailedOpenIsAReadingError) {
    logIn(QStringLiteral("ann\nDELE x"));
    host.credentials.addInternetPassword(plugIn->keychainAttributes(QStringLiteral("ann\nDELE x")), kPassword,
                                         nullptr);
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    expectReadingErrorAndCancel(QStringLiteral("a.jpg"));
    EXPECT_TRUE(stillQueued(path));
    EXPECT_EQ(server->count("USER"), 0);
}

TEST_F(UploadQueue, MissingPasswordIsToldAndTheHostAskedButTheUploadIsTried) {
    forgetPassword();
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    expectAlerts({{kPasswordError, QString()}});
    EXPECT_EQ(host.count(kCancelled), 1);
    EXPECT_EQ(uploaded("a.jpg"), "x");
    EXPECT_TRUE(server->commands().contains("USER ann"));
    EXPECT_FALSE(server->commands().contains("PASS secret"));
}

TEST_F(UploadQueue, MissingUserNameIsToldAndTheHostAskedButTheUploadIsTried) {
    logIn(QString());
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    expectAlerts({{kUsernameError, QString()}});
    EXPECT_EQ(host.count(kCancelled), 1);
    EXPECT_EQ(uploaded("a.jpg"), "x");
    EXPECT_TRUE(server->commands().contains("USER anonymous"));
}

TEST_F(UploadQueue, LostLoginIsAMissingUserName) {
    plugIn->loginDetails.set(nullptr);
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    expectAlerts({{kUsernameError, QString()}});
}

TEST_F(UploadQueue, RefusedFileIsToldCancelsTheExportAndStaysFirstInTheQueueAndOnTheDisk) {
    server->on("STOR", "553 Name not allowed");
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    addImage(QStringLiteral("b.jpg"), "y");
    plugIn->showProgressBar();
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), serverError(553)}});
    EXPECT_EQ(host.calls(),
              QStringList({kChainEnded, QStringLiteral("alert ") + uploadingError(QStringLiteral("a.jpg")),
                           kCancelled, kUploadBroken}));
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(plugIn->shouldCancelExport());
    EXPECT_TRUE(waitUntil([&] { return !plugIn->progressWindow; }));
    EXPECT_EQ(plugIn->exportedImagePaths->first(), path);
    EXPECT_TRUE(stillQueued(path));
    EXPECT_EQ(plugIn->numUploaded, 0);
    EXPECT_EQ(server->count("STOR"), 1);
}

TEST_F(UploadQueue, FileThatTheServerTookButDidNotConfirmIsNotDeleted) {
    server->on(kFTPClosingReply, "552 Disk full");
    const QString path = addImage(QStringLiteral("a.jpg"), QByteArray(100'000, 'x'));
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), serverError(552)}});
    EXPECT_TRUE(stillQueued(path));
    EXPECT_EQ(plugIn->numUploaded, 0);
}

TEST_F(UploadQueue, RefusedConnectionIsATransportError) {
    useServer(QStringLiteral("ftp.quillmark.example:21:127.0.0.1:1"));
    const QString path = addImage(QStringLiteral("a.jpg"), "x");
    plugIn->ftpPaths->clear();
    finishHandOver();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), kCommunicationError}});
    EXPECT_TRUE(stillQueued(path));
}

TEST_F(UploadQueue, StreamThatEndsBeforeTheLastByteIsAFailedUpload) {
    auto* const info = unopenedUpload("0123456789");
    give(info, platform::kStreamEventOpenCompleted);
    info->bytesWritten = 9;
    give(info, platform::kStreamEventEndEncountered);
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), kCommunicationError}});
    EXPECT_EQ(host.count(kCancelled), 1);
    EXPECT_EQ(host.count(kUploadBroken), 1);
    EXPECT_EQ(plugIn->numUploaded, 0);
    EXPECT_EQ(plugIn->exportedImagePaths->size(), 1);
}

TEST_F(UploadQueue, StreamThatEndsAfterTheLastByteIsAFailedUploadToo) {
    auto* const info = unopenedUpload("0123456789");
    info->bytesWritten = 10;
    give(info, platform::kStreamEventEndEncountered);
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), kCommunicationError}});
    EXPECT_EQ(plugIn->numUploaded, 0);
}

TEST_F(UploadQueue, FileIsCompleteWhenTheStreamAsksForMoreAfterTheLastByte) {
    auto* const info = unopenedUpload("0123456789");
    info->bytesWritten = 10;
    give(info, platform::kStreamEventCanAcceptBytes);
    EXPECT_EQ(plugIn->numUploaded, 1);
    EXPECT_EQ(host.calls(), QStringList({QStringLiteral("imageUploaded a.jpg"), kUploadEnded}));
}

TEST_F(UploadQueue, WriteThatFailsIsAFailedUpload) {
    auto* const info = unopenedUpload("0123456789");
    give(info, platform::kStreamEventCanAcceptBytes); // the stream was never opened: it takes nothing
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), kCommunicationError}});
    EXPECT_EQ(host.count(kUploadBroken), 1);
}

TEST_F(UploadQueue, WriteThatTakesNothingIsAFailedUpload) {
    const QByteArray contents(2 * platform::FTPWriteStream::kBufferSize, 'x');
    auto* const info = unopenedUpload(contents);
    server->addFolder("77");
    server->addFolder("77/Ceremony");
    server->onData({.then = FTPDataFault::Then::AnswerThenStall});
    // Without a client the stream opens all the same, and its buffer fills up.
    info->writeStream->setExpectedLength(static_cast<std::uint64_t>(contents.size()) * 100);
    ASSERT_TRUE(info->writeStream->open());
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(contents.constData());
    const auto length = static_cast<std::size_t>(contents.size());
    ASSERT_TRUE(waitUntil([&] { return info->writeStream->write(bytes, length) >= 0; }));
    int refused = 0; // In a row: what the system holds is full too.
    ASSERT_TRUE(waitUntil([&] {
        refused = info->writeStream->write(bytes, length) == 0 ? refused + 1 : 0;
        return refused == 10;
    }));
    give(info, platform::kStreamEventCanAcceptBytes);
    expectAlerts({{uploadingError(QStringLiteral("a.jpg")), kCommunicationError}});
    EXPECT_EQ(host.calls(), QStringList({QStringLiteral("alert ") + uploadingError(QStringLiteral("a.jpg")),
                                         kCancelled, kUploadBroken}));
}

TEST_F(UploadQueue, OpenCompletedStartsTheCountAtNothing) {
    auto* const info = unopenedUpload("0123456789");
    info->bytesWritten = 4711;
    give(info, platform::kStreamEventOpenCompleted);
    EXPECT_EQ(info->bytesWritten, 0U);
    give(info, platform::kStreamEventHasBytesAvailable);
    EXPECT_EQ(info->bytesWritten, 0U);
    EXPECT_TRUE(host.calls().isEmpty());
    plugIn->_finishCurrentUploadWithSuccess(false, info);
}

TEST_F(UploadQueue, WithTheCancelFlagSetEveryEventEndsTheTransferSilently) {
    for (const auto event : {platform::kStreamEventOpenCompleted, platform::kStreamEventHasBytesAvailable,
                             platform::kStreamEventCanAcceptBytes, platform::kStreamEventErrorOccurred,
                             platform::kStreamEventEndEncountered}) {
        auto* const info = unopenedUpload("0123456789");
        info->bytesWritten = 10;
        Quillmark::setShouldCancelFTPActivity(true);
        const int ended = host.count(kUploadBroken);
        give(info, event);
        EXPECT_EQ(host.count(kUploadBroken), ended + 1);
    }
    expectNoAlert();
    EXPECT_EQ(plugIn->numUploaded, 0);
    EXPECT_EQ(host.count(kCancelled), 0);
}

TEST_F(UploadQueue, NoFileIsStartedOnceTheCancelFlagIsSet) {
    addImage(QStringLiteral("a.jpg"), "x");
    Quillmark::setShouldCancelFTPActivity(true);
    plugIn->_uploadNextImage();
    EXPECT_EQ(host.calls(), QStringList({kCancelled, kUploadBroken}));
    EXPECT_EQ(server->connectionCount(), 0);
    expectNoAlert();
}

TEST_F(UploadQueue, CancelDuringATransferEndsItSilently) {
    server->setDataPace(std::chrono::milliseconds(50));
    const QString path = addImage(QStringLiteral("a.jpg"), QByteArray(5'000'000, 'x'));
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return server->receivedBytes() > 0; }));
    Quillmark::setShouldCancelFTPActivity(true);
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoAlert();
    EXPECT_TRUE(stillQueued(path));
}

TEST_F(UploadQueue, SecondRunOfTheQueueCountsOnFromTheFirst) {
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    addImage(QStringLiteral("b.jpg"), "y");
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return host.count(kUploadEnded) == 2; }));
    EXPECT_EQ(plugIn->numUploaded, 2);
}

} // namespace

} // namespace ftp_tests
