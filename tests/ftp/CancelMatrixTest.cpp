#include "ftp/DirectoryCreation.h"
#include "ftp/FTPStreams.h"
#include "tests/ftp/FTPStage.h"
#include "tests/support/ScriptedWebServer.h"

#include <QtCore/QFile>
#include <QtTest/QTest>

#include <future>
#include <thread>

using namespace test_support;

namespace ftp_tests {

namespace {

const QString kUsernameError = QStringLiteral("There was an error with your username.");
const QString kUploadedA = QStringLiteral("imageUploaded a.jpg");
constexpr std::chrono::milliseconds kAWhile{60};

enum class By { Host, Button };

/// Where the server falls silent, so that a stream stays in that state.
struct State {
    const char* name;
    const char* step;
    int occurrence = 1;
};

class Cancel : public FTPStage {
protected:
    void SetUp() override {
        FTPStage::SetUp();
        paths = {addImage(QStringLiteral("a.jpg"), QByteArray(kFileSize, 'a')),
                 addImage(QStringLiteral("b.jpg"), QByteArray(kFileSize, 'b'))};
        plugIn->showProgressBar();
    }

    virtual By by() const { return By::Host; }

    void cancel() {
        if (by() == By::Host)
            plugIn->exportManagerShouldCancelExport();
        else
            QTest::mouseClick(plugIn->progressWindow->findChild<QPushButton*>(QStringLiteral("cancelButton")),
                              Qt::LeftButton);
    }

    /// Waits without running the main thread's loop: a stream's events stay undelivered.
    static void sleepUntil(const std::function<bool()>& condition) {
        while (!condition())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(kAWhile); // The server has said it, the stream may still have to hear it.
    }

    /// What is done when the cancel returns, without waiting for any stream.
    void expectHostToldAndWindowClosed(int timesTold = 1) const {
        EXPECT_EQ(host.count(kCancelled), timesTold);
        EXPECT_TRUE(!plugIn->progressWindow || !plugIn->progressWindow->isVisible());
        EXPECT_FALSE(plugIn->progressBarTimer);
        EXPECT_FALSE(plugIn->loginDetails.get());
        EXPECT_FALSE(plugIn->eventList() || plugIn->categoryList() || plugIn->pricingList());
        EXPECT_TRUE(plugIn->shouldCancelExport());
    }

    /// These calls have come, and none more comes.
    void expectNoMoreThan(const QStringList& calls) {
        runLoopFor(kAWhile);
        EXPECT_EQ(host.calls(), calls);
    }

    void expectStillThere(const QStringList& expected) const {
        EXPECT_EQ(*plugIn->exportedImagePaths, expected);
        for (const QString& path : expected)
            EXPECT_TRUE(QFile::exists(path));
    }

    static constexpr int kFileSize = 600'000;
    QStringList paths;
};

/// Each state of a stream, cancelled by each.
class CancelByEach : public Cancel, public testing::WithParamInterface<By> {
protected:
    By by() const override { return GetParam(); }
};

class CancelOfStream : public Cancel, public testing::WithParamInterface<std::tuple<By, State>> {
protected:
    By by() const override { return std::get<By>(GetParam()); }

    /// Runs into the silence.
    void waitForSilence() {
        const State& state = std::get<State>(GetParam());
        server->on(state.step, {.silent = true}, state.occurrence);
        begin();
        EXPECT_TRUE(waitUntil([&] { return hasReached(state); }));
    }

    bool hasReached(const State& state) const {
        const QByteArray step(state.step);
        if (step == kFTPGreeting)
            return server->connectionCount() == state.occurrence;
        if (step == kFTPClosingReply)
            return server->count("STOR") == state.occurrence && server->receivedBytes() == kFileSize;
        return server->count(step) == state.occurrence;
    }

    virtual void begin() = 0;
};

class CancelOfFolder : public CancelOfStream {
protected:
    void begin() override { finishHandOver(); }
};

TEST_P(CancelOfFolder, IsSilentAndStopsTheChain) {
    waitForSilence();
    const int made = server->count("MKD");
    const auto foldersLeft = plugIn->ftpPaths->size();
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectNoMoreThan({kCancelled, kChainBroken});
    EXPECT_EQ(plugIn->ftpPaths->size(), foldersLeft);
    EXPECT_EQ(server->count("MKD"), made);
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    expectStillThere(paths);
}

class CancelOfUpload : public CancelOfStream {
protected:
    void begin() override { startUploads(); }
};

TEST_P(CancelOfUpload, IsSilentAndLeavesTheFile) {
    waitForSilence();
    const int uploads = std::get<State>(GetParam()).occurrence - 1;
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan(QStringList(kChainEnded) + QStringList(kUploadedA).mid(1 - uploads) +
                     QStringList({kCancelled, kUploadBroken}));
    EXPECT_EQ(plugIn->numUploaded, uploads);
    EXPECT_TRUE(waitUntil([&] { return server->openConnectionCount() == 0; }));
    expectStillThere(paths.mid(uploads));
}

TEST_P(CancelByEach, WhileImagesArePreparedTellsTheHostAndClosesTheWindow) {
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    expectNoMoreThan({kCancelled});
    EXPECT_EQ(server->connectionCount(), 0);
}

TEST_P(CancelByEach, AfterAFolderWasMadeButBeforeItsStreamCouldTellIsSilent) {
    finishHandOver();
    sleepUntil([&] { return !server->folders().isEmpty(); });
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectNoMoreThan({kCancelled, kChainBroken});
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77"}));
    EXPECT_EQ(plugIn->ftpPaths->size(), 2U) << "nobody has counted it";
}

TEST_P(CancelByEach, BetweenTwoFoldersIsForgottenByTheNextWhichGoesWithoutTheLogin) {
    plugIn->exportedImagePaths->clear();
    auto* const info = allocateStreamRecord<DirectoryCreationInfo>();
    info->writeStream = platform::FTPWriteStream::create(QStringLiteral("ftp://ftp.quillmark.example:21/77/"),
                                                         plugIn->environment->configuration.transport);
    info->owner = plugIn;
    info->completionMethod = &Quillmark::createdFTPDirectory;
    server->addFolder("77");
    // The stream's end has come, its completion has been posted but has not run.
    DirectoryCreationCallback(info->writeStream.get(), platform::kStreamEventEndEncountered, info);
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(waitForCall(kUploadEnded));
    EXPECT_FALSE(Quillmark::shouldCancelFTPActivity());
    EXPECT_EQ(server->folders(), QList<QByteArray>({"77", "77/Ceremony"}));
    EXPECT_TRUE(server->commands().contains("USER anonymous"));
    expectNoMoreThan({kCancelled, kChainEnded, kUploadEnded});
}

TEST_P(CancelByEach, WhileAFilesBytesAreSentIsSilentAndLeavesTheFile) {
    server->setDataPace(std::chrono::milliseconds(20));
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return server->receivedBytes() > 0; }));
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan({kChainEnded, kCancelled, kUploadBroken});
    EXPECT_LT(server->receivedBytes(), std::uint64_t{kFileSize});
    EXPECT_TRUE(server->files().empty());
    expectStillThere(paths);
}

TEST_P(CancelByEach, WhileTheServerTakesNoMoreBytesIsSilentAndLeavesTheFile) {
    server->onData({.afterBytes = 1000, .then = FTPDataFault::Then::AnswerThenStall});
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return server->receivedBytes() == 1000; }));
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan({kChainEnded, kCancelled, kUploadBroken});
    expectStillThere(paths);
}

TEST_P(CancelByEach, AfterAFileWasConfirmedButBeforeItsStreamCouldTellLeavesTheFile) {
    server->on(kFTPClosingReply, {.delay = 3 * kAWhile}, 1);
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return progress().currentValue == kFileSize; }));
    sleepUntil([&] { return !server->files().empty(); });
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan({kChainEnded, kCancelled, kUploadBroken});
    expectStillThere(paths);
}

TEST_P(CancelByEach, BetweenTwoFilesAsksTheHostASecondTime) {
    host.onCall = [this](const QString& call) {
        if (call == kUploadedA)
            cancel();
    };
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectHostToldAndWindowClosed(2);
    expectNoMoreThan({kChainEnded, kUploadedA, kCancelled, kCancelled, kUploadBroken});
    EXPECT_EQ(server->count("STOR"), 1);
    expectStillThere(paths.mid(1));
}

TEST_P(CancelByEach, InTheWaitBeforeTheFinishingRequestDoesNotStopTheRequest) {
    plugIn->exportedImagePaths->clear();
    startUploads();
    EXPECT_EQ(host.count(kUploadEnded), 1);
    cancel();
    expectHostToldAndWindowClosed();
    EXPECT_TRUE(waitForCall(kUnanswered));
    EXPECT_EQ(host.calls(), QStringList({kChainEnded, kUploadEnded, kCancelled, kUnanswered}));
}

TEST_P(CancelByEach, WhileAWorkerRunsIsItsToFinishButEndsTheStream) {
    server->on("MKD", {.silent = true});
    finishHandOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    plugIn->setThreadLaunched(true);
    cancel();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectNoMoreThan({kChainBroken});
    EXPECT_TRUE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    EXPECT_TRUE(plugIn->loginDetails.get());
    plugIn->setThreadLaunched(false);
}

TEST_F(Cancel, WhileTheFinishingRequestRunsIsSaidAgainWithItsAnswer) {
    TestCertificates ofTheService;
    ScriptedWebServer web(ofTheService.issue({QStringLiteral("www.quillmark.example")}));
    host.useService(web.connectTo(QStringLiteral("www.quillmark.example")), ofTheService.caFile());
    plugIn->cleanupPriorCancel();
    plugIn = host.makePlugIn();
    std::promise<void> gate;
    web.setScript([opened = gate.get_future().share()](const WebRequest&) {
        auto answer = WebAnswer::ok("<Information><Result>Done</Result></Information>");
        answer.gate = opened;
        return answer;
    });
    const auto before = host.calls();
    plugIn->showProgressBar();
    finishHandOver();
    EXPECT_TRUE(waitUntil([&] { return web.requests().size() == 1; }));
    EXPECT_TRUE(waitUntil([&] { return !plugIn->progressWindow; })) << "there is no button any more";
    plugIn->exportManagerShouldCancelExport();
    EXPECT_EQ(host.calls().mid(before.size()), QStringList({kChainEnded, kUploadEnded, kCancelled}));
    gate.set_value();
    EXPECT_TRUE(waitForCall(kFinished));
    EXPECT_EQ(host.calls().mid(before.size()),
              QStringList({kChainEnded, kUploadEnded, kCancelled, kCancelled,
                           QStringLiteral("alert Your Quillmark export is complete."), kFinished}));
}

TEST_F(Cancel, InTheAlertOfAFailedUploadIsSaidAgainAfterIt) {
    server->on("STOR", "553 No");
    host.onAlert = [this](const ShownAlert&) { cancel(); };
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan({kChainEnded, QStringLiteral("alert ") + uploadingError(QStringLiteral("a.jpg")),
                      kCancelled, kCancelled, kUploadBroken});
    expectStillThere(paths);
}

TEST_F(Cancel, InTheAlertOfAMissingUserNameEndsTheUploadSilently) {
    logIn(std::nullopt);
    host.onAlert = [this](const ShownAlert&) { cancel(); };
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadBroken));
    expectNoMoreThan(
        {kChainEnded, QStringLiteral("alert ") + kUsernameError, kCancelled, kCancelled, kUploadBroken});
    EXPECT_TRUE(server->files().empty());
    expectStillThere(paths);
}

TEST_F(Cancel, TwiceTellsTheHostTwiceAndEndsTheStreamOnce) {
    server->on("MKD", {.silent = true});
    finishHandOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    cancel();
    cancel();
    EXPECT_TRUE(waitForCall(kChainBroken));
    expectNoMoreThan({kCancelled, kCancelled, kChainBroken});
}

TEST_F(Cancel, ThenTheHostDropsThePlugInWithAStreamStillOpen) {
    server->on("MKD", {.silent = true});
    finishHandOver();
    EXPECT_TRUE(waitUntil([&] { return server->count("MKD") == 1; }));
    cancel();
    const std::weak_ptr<Quillmark> dropped = std::exchange(plugIn, nullptr);
    EXPECT_TRUE(waitUntil([&] { return dropped.expired(); })) << "the record held the last reference";
    EXPECT_EQ(host.calls(), QStringList({kCancelled, kChainBroken}));
    plugIn = host.makePlugIn();
}

const auto nameOfBy = [](By by) { return std::string(by == By::Host ? "ByTheHost" : "ByTheButton"); };
const auto nameOfState = [](const auto& tested) {
    return std::get<State>(tested.param).name + nameOfBy(std::get<By>(tested.param));
};
const auto each = testing::Values(By::Host, By::Button);

INSTANTIATE_TEST_SUITE_P(Matrix, CancelByEach, each,
                         [](const auto& tested) { return nameOfBy(tested.param); });
INSTANTIATE_TEST_SUITE_P(
    Matrix, CancelOfFolder,
    testing::Combine(each,
                     testing::Values(State{"Connecting", kFTPGreeting}, State{"NamingTheUser", "USER"},
                                     State{"GivingThePassword", "PASS"}, State{"AskingForTheFolder", "PWD"},
                                     State{"MakingTheFirst", "MKD"}, State{"MakingTheSecond", "MKD", 2})),
    nameOfState);
INSTANTIATE_TEST_SUITE_P(
    Matrix, CancelOfUpload,
    testing::Combine(each, testing::Values(State{"Connecting", kFTPGreeting}, State{"NamingTheUser", "USER"},
                                           State{"GivingThePassword", "PASS"}, State{"Opening", "EPSV"},
                                           State{"SettingTheType", "TYPE"}, State{"Storing", "STOR"},
                                           State{"AwaitingConfirmation", kFTPClosingReply},
                                           State{"OpeningTheSecond", "EPSV", 2},
                                           State{"StoringTheSecond", "STOR", 2},
                                           State{"AwaitingTheSecondConfirmation", kFTPClosingReply, 2})),
    nameOfState);

} // namespace

} // namespace ftp_tests
