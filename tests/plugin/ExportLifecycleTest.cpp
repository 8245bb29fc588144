// What the host's export callbacks do: beginning, hand-over to the FTP stage, cancelling.

#include "platform/RunLoop.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/ServerSocket.h"
#include "tests/support/Waiting.h"

#include <QtCore/QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <utility>

using test_support::RecordingHost;
using test_support::waitUntil;

namespace {

/// A port of the loopback address where nobody listens.
std::uint16_t portOfNobody() {
    return test_support::ServerSocket::listenOnLoopback(false)->port();
}

/// The service can't be reached: what an export does ends where it first needs it.
class ExportLifecycle : public testing::Test {
protected:
    ExportLifecycle() {
        host.imageCount = 7;
        host.useService(QStringLiteral("www.quillmark.example:443:127.0.0.1:%1,"
                                       "ftp.quillmark.example:21:127.0.0.1:%1")
                            .arg(portOfNobody()));
        plugIn = host.makePlugIn();
        // The flag is the whole process's: an earlier export's cancel is over.
        Quillmark::setShouldCancelFTPActivity(false);
    }
    ~ExportLifecycle() override {
        if (plugIn)
            delete plugIn->progressWindow;
        const std::weak_ptr<Quillmark> ending = std::exchange(plugIn, nullptr);
        EXPECT_TRUE(waitUntil([&] { return ending.expired(); })) << "something keeps the object";
        Quillmark::setShouldCancelFTPActivity(false);
    }

    void passValidation() {
        plugIn->isLoggedIn = true;
        plugIn->setChosenEventId(QStringLiteral("77"));
        plugIn->setChosenCategory(QStringLiteral("Ceremony"));
    }

    void fillLists() {
        plugIn->setEventList(std::make_shared<RecordList>(2, std::make_shared<Record>()));
        plugIn->setCategoryList(std::make_shared<RecordList>(2, std::make_shared<Record>()));
        plugIn->setPricingList(std::make_shared<RecordList>(2, std::make_shared<Record>()));
    }

    bool listsAreThere() const {
        return plugIn->eventList() && plugIn->categoryList() && plugIn->pricingList() &&
               plugIn->loginDetails.get();
    }

    bool anyListIsThere() const {
        return plugIn->eventList() || plugIn->categoryList() || plugIn->pricingList() ||
               plugIn->loginDetails.get();
    }

    hostapi::ExportProgress progress() {
        plugIn->lockProgress();
        const hostapi::ExportProgress copy = plugIn->exportProgress;
        plugIn->unlockProgress();
        return copy;
    }

    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
};

} // namespace

TEST_F(ExportLifecycle, ARefusedExportChangesNothingAndIsNotBegun) {
    plugIn->settingsView();
    plugIn->totalBytes = 5;
    plugIn->exportManagerShouldBeginExport();
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("sheet Please log in first")});
    EXPECT_TRUE(progress().message.isNull());
    EXPECT_EQ(progress().totalValue, 0U);
    EXPECT_EQ(plugIn->progressWindow, nullptr);
    EXPECT_EQ(plugIn->totalBytes, 5U);
    EXPECT_TRUE(host.defaults().isEmpty());
}

TEST_F(ExportLifecycle, ARefusedExportMayBeAskedForAgain) {
    plugIn->exportManagerShouldBeginExport();
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    EXPECT_EQ(host.count(QStringLiteral("shouldBeginExport")), 1);
}

TEST_F(ExportLifecycle, BeginningSetsTheProgressRecordToTheFirstImageOfAll) {
    passValidation();
    plugIn->exportProgress.indeterminateProgress = true;
    plugIn->exportManagerShouldBeginExport();
    EXPECT_EQ(progress().currentValue, 1U);
    EXPECT_EQ(progress().totalValue, 7U);
    EXPECT_EQ(progress().message, QStringLiteral("Step 1 of 3: Preparing Image 1 of 7..."));
    EXPECT_FALSE(progress().indeterminateProgress);
}

TEST_F(ExportLifecycle, BeginningSavesTheQuality) {
    passValidation();
    plugIn->settingsView();
    plugIn->qualitySlider->setValue(700);
    plugIn->exportManagerShouldBeginExport();
    const QVariantMap defaults = host.defaults();
    EXPECT_EQ(defaults.value(QStringLiteral("imageQuality")).typeId(), QMetaType::Double);
    EXPECT_EQ(defaults.value(QStringLiteral("imageQuality")).toDouble(), 7.0);
    EXPECT_EQ(defaults.value(QStringLiteral("imageQualityPresent")), QVariant(true));
}

TEST_F(ExportLifecycle, WhenTheHostIsToldToBeginAllIsReady) {
    passValidation();
    plugIn->totalBytes = 5;
    bool windowWasOpen = false;
    std::uint64_t bytes = 1;
    QString message;
    host.onCall = [&](const QString& call) {
        if (call != QStringLiteral("shouldBeginExport"))
            return;
        windowWasOpen = plugIn->progressWindow && plugIn->progressWindow->isVisible();
        bytes = plugIn->totalBytes;
        message = progress().message;
    };
    plugIn->exportManagerShouldBeginExport();
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("shouldBeginExport")});
    EXPECT_TRUE(windowWasOpen);
    EXPECT_EQ(bytes, 0U);
    EXPECT_EQ(message, QStringLiteral("Step 1 of 3: Preparing Image 1 of 7..."));
}

TEST_F(ExportLifecycle, TheExportPathIsTheHosts) {
    plugIn->exportManagerWillBeginExportToPath(QStringLiteral("/some/folder"));
    EXPECT_EQ(plugIn->_exportPath, QStringLiteral("/some/folder"));
}

TEST_F(ExportLifecycle, NoImageIsLeftForTheHostToWrite) {
    plugIn->exportManagerWillBeginExportToPath(plugIn->tempDirectoryPath);
    EXPECT_FALSE(plugIn->exportManagerShouldWriteImageData("no image", QStringLiteral("a.jpg"), 0));
}

TEST_F(ExportLifecycle, TheFolderStageCountsTheRemoteFolders) {
    using Paths = std::deque<std::optional<QString>>;
    plugIn->ftpPaths = std::make_shared<Paths>(
        Paths{QStringLiteral("77/"), QStringLiteral("77/A/"), QStringLiteral("77/B/")});
    plugIn->exportProgress.indeterminateProgress = true;
    plugIn->exportManagerDidFinishExport();
    EXPECT_EQ(progress().currentValue, 1U);
    EXPECT_EQ(progress().totalValue, 3U);
    EXPECT_EQ(progress().message, QStringLiteral("Step 2 of 3: Preparing remote directories..."));
    EXPECT_FALSE(progress().indeterminateProgress);
    EXPECT_TRUE(waitUntil([&] { return host.count(QStringLiteral("folderChainEnded 0")) == 1; }));
    EXPECT_EQ(host.count(QStringLiteral("shouldFinishExport")), 0);
}

TEST_F(ExportLifecycle, WithoutRemoteFoldersTheUploadStageBeginsAtOnce) {
    plugIn->exportManagerDidFinishExport();
    EXPECT_EQ(progress().message, QStringLiteral("Step 3 of 3: Uploading Images..."));
    EXPECT_EQ(progress().currentValue, 0U);
    EXPECT_EQ(progress().totalValue, 0U);
    EXPECT_EQ(host.count(QStringLiteral("folderChainEnded 1")), 1);
    EXPECT_TRUE(waitUntil([&] { return host.count(QStringLiteral("finishingRequestUnanswered")) == 1; }));
    EXPECT_EQ(host.count(QStringLiteral("shouldFinishExport")), 0) << "the export stays open";
}

TEST_F(ExportLifecycle, ACancelWithoutAWorkerIsDoneWhenItReturns) {
    fillLists();
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    ASSERT_NE(plugIn->progressWindow, nullptr);
    plugIn->exportManagerShouldCancelExport();
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(plugIn->shouldCancelExport());
    EXPECT_EQ(plugIn->progressBarTimer, nullptr);
    EXPECT_FALSE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    EXPECT_FALSE(anyListIsThere());
    EXPECT_EQ(host.count(QStringLiteral("shouldCancelExport")), 1);
}

TEST_F(ExportLifecycle, TheHostIsToldOfACancelLast) {
    fillLists();
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    QStringList order;
    QObject::connect(plugIn->progressBarTimer, &QObject::destroyed, [&] {
        order << QStringLiteral("timer");
        EXPECT_TRUE(plugIn->progressWindow && plugIn->progressWindow->isVisible()) << "the timer ends first";
    });
    const auto list = [&](const char* name) {
        return [&order, name, this] {
            EXPECT_FALSE(plugIn->progressWindow && plugIn->progressWindow->isVisible()) << name;
            order << QString::fromLatin1(name);
        };
    };
    QObject::connect(plugIn.get(), &Quillmark::eventListChanged, list("events"));
    QObject::connect(plugIn.get(), &Quillmark::categoryListChanged, list("categories"));
    QObject::connect(plugIn.get(), &Quillmark::pricingListChanged, list("pricing"));
    host.onCall = [&](const QString& call) {
        EXPECT_FALSE(anyListIsThere());
        order << call;
    };
    plugIn->exportManagerShouldCancelExport();
    const QStringList expected{QStringLiteral("timer"), QStringLiteral("events"),
                               QStringLiteral("categories"), QStringLiteral("pricing"),
                               QStringLiteral("shouldCancelExport")};
    EXPECT_EQ(order, expected);
}

TEST_F(ExportLifecycle, ACancelBesideAWorkerLeavesTheCleaningUpToIt) {
    fillLists();
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    plugIn->setThreadLaunched(true);
    plugIn->exportManagerShouldCancelExport();
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(plugIn->shouldCancelExport());
    EXPECT_NE(plugIn->progressBarTimer, nullptr);
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_TRUE(listsAreThere());
    EXPECT_EQ(host.count(QStringLiteral("shouldCancelExport")), 0);
}

TEST_F(ExportLifecycle, ACancelMayComeOnAnyThread) {
    fillLists();
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    QThread* timerEndedOn = nullptr;
    QObject::connect(plugIn->progressBarTimer, &QObject::destroyed,
                     [&] { timerEndedOn = QThread::currentThread(); });
    std::atomic<bool> done{false};
    std::thread canceller([&] {
        plugIn->exportManagerShouldCancelExport();
        done = true;
    });
    EXPECT_TRUE(waitUntil([&] { return done.load(); }));
    canceller.join();
    EXPECT_EQ(timerEndedOn, QThread::currentThread());
    EXPECT_FALSE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    EXPECT_FALSE(anyListIsThere());
    EXPECT_EQ(host.count(QStringLiteral("shouldCancelExport")), 1);
}

TEST_F(ExportLifecycle, ACancelBeforeAnyExportIsTold) {
    plugIn->exportManagerShouldCancelExport();
    EXPECT_FALSE(anyListIsThere());
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("shouldCancelExport")});
}

TEST_F(ExportLifecycle, TheWindowsTimerMayHoldTheLastReferenceInACancel) {
    passValidation();
    plugIn->exportManagerShouldBeginExport();
    ASSERT_NE(plugIn->progressBarTimer, nullptr);
    Quillmark* const object = plugIn.get();
    const std::weak_ptr<Quillmark> weak = plugIn;
    plugIn.reset();
    ASSERT_FALSE(weak.expired()) << "the timer keeps it";
    object->exportManagerShouldCancelExport();
    EXPECT_EQ(host.count(QStringLiteral("shouldCancelExport")), 1);
    EXPECT_TRUE(waitUntil([&] { return weak.expired(); }));
}

TEST_F(ExportLifecycle, ACancelInTheMiddleOfALoginIsFinishedByItsWorker) {
    const auto server = test_support::ServerSocket::listenOnLoopback(false);
    ASSERT_NE(server, nullptr);
    host.useService(QStringLiteral("www.quillmark.example:443:127.0.0.1:%1").arg(server->port()));
    plugIn = host.makePlugIn();
    ASSERT_NE(plugIn->settingsView(), nullptr);
    plugIn->usernameField->setText(QStringLiteral("ann"));
    plugIn->passwordField->setText(QStringLiteral("secret"));

    std::atomic<bool> isConnected{false};
    std::atomic<bool> mayAnswer{false};
    std::thread service([&] {
        const auto connection = server->accept(nullptr);
        isConnected = true;
        while (!mayAnswer)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (connection)
            connection->cut(test_support::Cut::Reset);
    });
    plugIn->loginButton->click();
    EXPECT_TRUE(waitUntil([&] { return isConnected.load(); }));
    plugIn->exportManagerShouldCancelExport();
    EXPECT_TRUE(listsAreThere()) << "nothing is cleaned up while the request is under way";
    EXPECT_EQ(host.count(QStringLiteral("shouldCancelExport")), 0);

    mayAnswer = true;
    EXPECT_TRUE(waitUntil([&] { return host.count(QStringLiteral("shouldCancelExport")) == 1; }));
    service.join();
    EXPECT_FALSE(anyListIsThere());
    EXPECT_FALSE(plugIn->isLoggedIn);
}
