#include "ftp/UploadEstimate.h"
#include "tests/ftp/FTPStage.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtGui/QAccessible>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialog>
#include <QtWidgets/QVBoxLayout>

#include <climits>
#include <thread>

using namespace test_support;

namespace ftp_tests {

namespace {

/// What a window of the desktop is told when its user closes it.
void closeByWindowSystem(QWidget* window) {
    QCloseEvent event;
    QSpontaneKeyEvent::setSpontaneous(&event);
    qApp->notify(window, &event);
}

/// A host that looks at the progress record before it answers: for ever, if the plug-in held the lock then.
class LookingExportManager final : public hostapi::ApertureExportManager {
public:
    LookingExportManager(Quillmark& plugIn, std::shared_ptr<ApertureExportManager> manager)
        : plugIn_(plugIn)
        , manager_(std::move(manager)) {}

    std::uint32_t imageCount() override {
        plugIn_.lockProgress();
        plugIn_.unlockProgress();
        return 12;
    }
    std::shared_ptr<PROAPIObject> apiForProtocol(QLatin1String protocol) override {
        return manager_->apiForProtocol(protocol);
    }
    QVariantMap propertiesForImageAtIndex(std::uint32_t index) override {
        return manager_->propertiesForImageAtIndex(index);
    }
    void shouldBeginExport() override { manager_->shouldBeginExport(); }
    void shouldCancelExport() override { manager_->shouldCancelExport(); }
    void shouldFinishExport() override { manager_->shouldFinishExport(); }

private:
    Quillmark& plugIn_;
    const std::shared_ptr<ApertureExportManager> manager_;
};

class ProgressWindow : public FTPStage {
protected:
    void setProgress(std::size_t current, std::size_t total, const QString& message = {}) {
        plugIn->lockProgress();
        plugIn->exportProgress.currentValue = current;
        plugIn->exportProgress.totalValue = total;
        plugIn->exportProgress.message = message;
        plugIn->unlockProgress();
    }

    /// The message after a write, where the upload began so long ago.
    std::string messageAfterWrite(std::int32_t bytes, std::size_t before, std::uint64_t total,
                                  std::chrono::milliseconds ago) {
        plugIn->uploadStartTime = std::chrono::steady_clock::now() - ago;
        plugIn->totalBytes = total;
        setProgress(before, static_cast<std::size_t>(total));
        plugIn->_incrementUploadProgress(bytes);
        return progress().message.toStdString();
    }

    QPushButton* cancelButton() const {
        return plugIn->progressWindow->findChild<QPushButton*>(QStringLiteral("cancelButton"));
    }
    /// As the window system brings it, to the control that has the focus.
    void pressKey(Qt::Key key) {
        ASSERT_TRUE(QTest::qWaitForWindowActive(plugIn->progressWindow));
        QTest::keyClick(plugIn->progressWindow->windowHandle(), key);
    }
    bool waitUntilClosed() const {
        return waitUntil([&] { return !plugIn->progressWindow; });
    }
};

TEST_F(ProgressWindow, ThirdOfTheBytesAfterThreeSecondsLeavesSevenSeconds) {
    host.imageCount = 4;
    EXPECT_EQ(messageAfterWrite(60'000, 30'000, 300'000, std::chrono::seconds(3)),
              "Step 3 of 3: Uploading Image 1 of 4 ... 00:07 remaining");
    EXPECT_EQ(progress().currentValue, 90'000U);
}

TEST_F(ProgressWindow, MinutesAreNotCappedAtTwoDigits) {
    EXPECT_EQ(messageAfterWrite(1'000'000, 0, 1'372'500, std::chrono::seconds(10'000)),
              "Step 3 of 3: Uploading Image 1 of 1 ... 62:05 remaining");
    EXPECT_EQ(messageAfterWrite(1'000, 0, 7'000, std::chrono::seconds(1'001)),
              "Step 3 of 3: Uploading Image 1 of 1 ... 100:06 remaining");
}

TEST_F(ProgressWindow, WriteAtOnceAfterTheBeginningLeavesNoTime) {
    plugIn->uploadStartTime = std::nullopt;
    plugIn->totalBytes = 300'000;
    plugIn->_incrementUploadProgress(1'000);
    EXPECT_EQ(progress().message.toStdString(), "Step 3 of 3: Uploading Image 1 of 1 ... 00:00 remaining");
    EXPECT_EQ(messageAfterWrite(1'000'000, 0, 1'300'000, std::chrono::milliseconds(0)),
              "Step 3 of 3: Uploading Image 1 of 1 ... 00:00 remaining");
}

TEST_F(ProgressWindow, HostsImageCountIsNamedNotTheQueuesLength) {
    host.imageCount = 12;
    plugIn->numUploaded = 4;
    EXPECT_EQ(messageAfterWrite(10, 0, 10, std::chrono::seconds(1)),
              "Step 3 of 3: Uploading Image 5 of 12 ... 00:00 remaining");
}

TEST_F(ProgressWindow, NothingSentInALongTimeIsTheLongestEstimate) {
    EXPECT_EQ(messageAfterWrite(0, 0, 100, std::chrono::seconds(1)),
              "Step 3 of 3: Uploading Image 1 of 1 ... 2147483647:07 remaining");
}

TEST_F(ProgressWindow, BeyondTwoGiBTheEstimateIsWrittenWithItsSign) {
    EXPECT_EQ(messageAfterWrite(100, std::size_t{1} << 31, 4'000'000'000, std::chrono::milliseconds(99'915)),
              "Step 3 of 3: Uploading Image 1 of 1 ... -4:-46 remaining");
}

TEST_F(ProgressWindow, NumberOfTheFileWrapsAroundAndSoDoesTheHostsCount) {
    host.imageCount = UINT32_MAX;
    plugIn->numUploaded = INT32_MAX;
    EXPECT_EQ(messageAfterWrite(10, 0, 10, std::chrono::seconds(1)),
              "Step 3 of 3: Uploading Image -2147483648 of -1 ... 00:00 remaining");
}

TEST_F(ProgressWindow, RecordGoesOnBeyondFourGiB) {
    const std::size_t before = (std::size_t{1} << 32) + 5;
    messageAfterWrite(10, before, std::uint64_t{1} << 33, std::chrono::seconds(1));
    EXPECT_EQ(progress().currentValue, before + 10);
}

TEST_F(ProgressWindow, HostMayLookAtTheRecordWhileItIsAskedForItsImageCount) {
    plugIn->_exportManager = std::make_shared<LookingExportManager>(*plugIn, plugIn->_exportManager);
    EXPECT_EQ(messageAfterWrite(10, 0, 10, std::chrono::seconds(1)),
              "Step 3 of 3: Uploading Image 1 of 12 ... 00:00 remaining");
}

TEST_F(ProgressWindow, FirstWriteOfTheSecondFileNumbersTheFileTwo) {
    host.imageCount = 3;
    addImage(QStringLiteral("a.jpg"), "x");
    addImage(QStringLiteral("b.jpg"), QByteArray(600'000, 'y'));
    server->setDataPace(std::chrono::milliseconds(20));
    startUploads();
    EXPECT_TRUE(waitForCall(QStringLiteral("imageUploaded a.jpg")));
    EXPECT_TRUE(progress().message.startsWith(QStringLiteral("Step 3 of 3: Uploading Image 1 of 3 ... ")));
    EXPECT_TRUE(waitUntil([&] { return progress().currentValue > 1; }));
    EXPECT_TRUE(progress().message.startsWith(QStringLiteral("Step 3 of 3: Uploading Image 2 of 3 ... ")));
    EXPECT_TRUE(progress().message.endsWith(QStringLiteral(" remaining")));
    EXPECT_TRUE(waitForCall(kUploadEnded));
}

TEST_F(ProgressWindow, SecondExportNumbersItsFilesOn) {
    host.imageCount = 1;
    addImage(QStringLiteral("a.jpg"), "x");
    startUploads();
    EXPECT_TRUE(waitForCall(kUploadEnded));
    addImage(QStringLiteral("b.jpg"), "y");
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return host.count(kUploadEnded) == 2; }));
    EXPECT_TRUE(progress().message.startsWith(QStringLiteral("Step 3 of 3: Uploading Image 2 of 1 ... ")));
}

TEST_F(ProgressWindow, OpensInFrontWithTheRecordsTotal) {
    setProgress(1, 7, QStringLiteral("Step 1 of 3: Preparing Image 1 of 7..."));
    plugIn->showProgressBar();
    ASSERT_TRUE(plugIn->progressWindow && plugIn->progressBar && plugIn->progressMessage &&
                plugIn->progressView);
    EXPECT_TRUE(plugIn->progressWindow->isWindow());
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_TRUE(QTest::qWaitForWindowActive(plugIn->progressWindow));
    EXPECT_EQ(plugIn->progressBar->maximum(), 7);
    ASSERT_TRUE(plugIn->progressBarTimer);
    EXPECT_TRUE(plugIn->progressBarTimer->isActive());
    EXPECT_FALSE(plugIn->progressBarTimer->isSingleShot());
    EXPECT_EQ(plugIn->progressBarTimer->interval(), 1000);
}

TEST_F(ProgressWindow, FollowsTheRecordEverySecond) {
    plugIn->showProgressBar();
    setProgress(3, 9, QStringLiteral("<b>Step</b> & co"));
    EXPECT_NE(plugIn->progressBar->maximum(), 9);
    QElapsedTimer clock;
    clock.start();
    EXPECT_TRUE(waitUntil([&] { return plugIn->progressBar->maximum() == 9; }));
    EXPECT_GT(clock.elapsed(), 700);
    EXPECT_EQ(plugIn->progressBar->value(), 3);
    EXPECT_EQ(plugIn->progressMessage->text(), QStringLiteral("<b>Step</b> & co"));
    EXPECT_EQ(plugIn->progressMessage->textFormat(), Qt::PlainText);
    setProgress(4, 9);
    EXPECT_TRUE(waitUntil([&] { return plugIn->progressBar->value() == 4; }));
}

TEST_F(ProgressWindow, BarShowsTotalsAboveFourGiBRight) {
    plugIn->showProgressBar();
    const std::vector<std::size_t> totals = {100, INT_MAX, std::size_t{INT_MAX} + 1, std::size_t{6} << 30,
                                             SIZE_MAX};
    for (const std::size_t total : totals) {
        for (const double part : {0.0, 0.25, 0.5, 1.0}) {
            setProgress(part < 1.0 ? static_cast<std::size_t>(part * static_cast<double>(total)) : total,
                        total);
            plugIn->updateTimer();
            EXPECT_NEAR(double(plugIn->progressBar->value()) / plugIn->progressBar->maximum(), part, 0.001)
                << total;
        }
    }
}

TEST_F(ProgressWindow, BarStopsAtItsMaximumWhereTheRecordGoesBeyond) {
    plugIn->showProgressBar();
    setProgress(2, 3);
    plugIn->updateTimer();
    setProgress(4, 3); // what stage 1 ends with
    plugIn->updateTimer();
    EXPECT_EQ(plugIn->progressBar->value(), 3);
    setProgress(0, 2); // the next stage
    plugIn->updateTimer();
    EXPECT_EQ(plugIn->progressBar->maximum(), 2);
    EXPECT_EQ(plugIn->progressBar->value(), 0);
}

TEST_F(ProgressWindow, CancelButtonCancelsTheExportAndClosesTheWindow) {
    plugIn->showProgressBar();
    QTest::mouseClick(cancelButton(), Qt::LeftButton);
    EXPECT_TRUE(Quillmark::shouldCancelFTPActivity());
    EXPECT_TRUE(plugIn->shouldCancelExport());
    EXPECT_EQ(host.calls(), QStringList(kCancelled));
    EXPECT_FALSE(plugIn->progressBarTimer);
    EXPECT_TRUE(waitUntilClosed());
}

TEST_F(ProgressWindow, EscapeCancels) {
    plugIn->showProgressBar();
    pressKey(Qt::Key_Escape);
    EXPECT_TRUE(waitForCall(kCancelled));
    EXPECT_TRUE(waitUntilClosed());
}

TEST_F(ProgressWindow, CancelIsReachedByTheKeyboard) {
    plugIn->showProgressBar();
    for (const Qt::Key key : {Qt::Key_Return, Qt::Key_Space}) {
        pressKey(key);
        ASSERT_EQ(host.count(kCancelled), 0) << "a key that was still meant for another window";
    }
    pressKey(Qt::Key_Tab);
    EXPECT_TRUE(waitUntil([&] { return cancelButton()->hasFocus(); }));
    pressKey(Qt::Key_Space);
    EXPECT_TRUE(waitForCall(kCancelled));
    EXPECT_EQ(host.count(kCancelled), 1);
}

TEST_F(ProgressWindow, ReturnPressesTheCancelButtonThatHasTheFocus) {
    plugIn->showProgressBar();
    pressKey(Qt::Key_Tab);
    EXPECT_TRUE(waitUntil([&] { return cancelButton()->hasFocus(); }));
    pressKey(Qt::Key_Return);
    EXPECT_TRUE(waitForCall(kCancelled));
    EXPECT_EQ(host.count(kCancelled), 1);
}

TEST_F(ProgressWindow, ScreenReaderIsToldTheMessageItselfAndWhatTheBarMeans) {
    plugIn->showProgressBar();
    setProgress(3, 12, QStringLiteral("Step 1 of 3: Preparing Image 3 of 12..."));
    plugIn->updateTimer();
    const auto nameOf = [](QObject* control) {
        QAccessibleInterface* const seen = QAccessible::queryAccessibleInterface(control);
        return seen ? seen->text(QAccessible::Name).toStdString() : "nothing";
    };
    EXPECT_EQ(nameOf(plugIn->progressMessage), "Step 1 of 3: Preparing Image 3 of 12...");
    EXPECT_EQ(nameOf(plugIn->progressBar), "Export progress");
    EXPECT_EQ(nameOf(cancelButton()), "Cancel");
    auto* const value = QAccessible::queryAccessibleInterface(plugIn->progressBar)->valueInterface();
    ASSERT_TRUE(value);
    EXPECT_EQ(value->currentValue().toInt(), 3);
    EXPECT_EQ(value->maximumValue().toInt(), 12);
}

TEST_F(ProgressWindow, ClosingItIsCancelling) {
    plugIn->showProgressBar();
    closeByWindowSystem(plugIn->progressWindow);
    EXPECT_TRUE(waitForCall(kCancelled));
    EXPECT_TRUE(waitUntilClosed());
    EXPECT_EQ(host.count(kCancelled), 1);
}

TEST_F(ProgressWindow, StaysOpenWhileAWorkerStillHasToFinishTheCancel) {
    plugIn->setThreadLaunched(true);
    plugIn->showProgressBar();
    closeByWindowSystem(plugIn->progressWindow);
    EXPECT_TRUE(waitUntil([&] { return plugIn->shouldCancelExport(); }));
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_EQ(host.count(kCancelled), 0);
    plugIn->setThreadLaunched(false);
}

TEST_F(ProgressWindow, CancelWhileAFileIsInTransferEndsTheTransferWithoutAnAlert) {
    server->setDataPace(std::chrono::milliseconds(50));
    addImage(QStringLiteral("a.jpg"), QByteArray(5'000'000, 'x'));
    plugIn->showProgressBar();
    startUploads();
    EXPECT_TRUE(waitUntil([&] { return server->receivedBytes() > 0; }));
    QTest::mouseClick(cancelButton(), Qt::LeftButton);
    EXPECT_TRUE(waitForCall(kUploadBroken));
    EXPECT_TRUE(waitUntilClosed());
    expectNoAlert();
    EXPECT_EQ(host.calls(), QStringList({kChainEnded, kCancelled, kUploadBroken}));
}

TEST_F(ProgressWindow, ClosesWhenTheFinishingRequestBegins) {
    plugIn->showProgressBar();
    startUploads();
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_TRUE(waitForCall(kUnanswered));
    EXPECT_TRUE(waitUntilClosed());
    EXPECT_FALSE(plugIn->progressBarTimer);
}

TEST_F(ProgressWindow, KeepsThePlugInUntilItIsCancelled) {
    plugIn->showProgressBar();
    const std::weak_ptr<Quillmark> kept = plugIn;
    plugIn = nullptr;
    runLoopFor(std::chrono::milliseconds(50));
    plugIn = kept.lock();
    ASSERT_TRUE(plugIn);
    EXPECT_TRUE(plugIn->progressWindow);
}

TEST_F(ProgressWindow, SecondExportReplacesAWindowThatABrokenChainLeftOpen) {
    plugIn->showProgressBar();
    const QPointer<QWidget> first = plugIn->progressWindow;
    const QPointer<QTimer> firstTimer = plugIn->progressBarTimer;
    plugIn->showProgressBar();
    EXPECT_FALSE(firstTimer);
    EXPECT_TRUE(waitUntil([&] { return !first; }));
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_EQ(host.count(kCancelled), 0);
}

TEST_F(ProgressWindow, MayBeOpenedFromAnyThread) {
    std::atomic<bool> opened = false;
    std::thread other([&] {
        plugIn->showProgressBar();
        opened = true;
    });
    EXPECT_TRUE(waitUntil([&] { return opened.load(); }));
    other.join();
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    EXPECT_EQ(plugIn->progressBarTimer->thread(), QApplication::instance()->thread());
}

TEST_F(ProgressWindow, ExportGoesOnWhereItsInterfaceFileIsMissing) {
    QTemporaryDir bundle;
    ASSERT_TRUE(QDir(bundle.path()).mkdir(QStringLiteral("Resources")));
    const QString profile = QStringLiteral("/Resources/ProPhotoRGB.icc");
    ASSERT_TRUE(QFile::copy(RecordingHost::defaultBundlePath() + profile, bundle.path() + profile));
    plugIn = host.makePlugIn(bundle.path());
    ASSERT_TRUE(plugIn);
    plugIn->showProgressBar();
    plugIn->updateTimer();
    EXPECT_FALSE(plugIn->progressWindow);
    EXPECT_TRUE(plugIn->progressBarTimer);
    plugIn->cancelDuringUpload(nullptr);
    EXPECT_FALSE(plugIn->progressBarTimer);
}

TEST_F(ProgressWindow, IsNotBlockedByTheModalDialogThatTheSettingsAreIn) {
    QDialog dialog;
    auto* const layout = new QVBoxLayout(&dialog);
    ASSERT_TRUE(plugIn->settingsView());
    layout->addWidget(plugIn->settingsView());
    dialog.setModal(true);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    plugIn->showProgressBar();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(plugIn->progressWindow));
    // Through the window system, where modality counts.
    const QPoint button =
        cancelButton()->mapTo(plugIn->progressWindow.data(), cancelButton()->rect().center());
    QTest::mouseClick(plugIn->progressWindow->windowHandle(), Qt::LeftButton, {}, button);
    EXPECT_TRUE(waitForCall(kCancelled));
}

TEST_F(ProgressWindow, SurvivesTheDialogThatTheSettingsAreIn) {
    {
        QWidget dialog;
        auto* const layout = new QVBoxLayout(&dialog);
        ASSERT_TRUE(plugIn->settingsView());
        layout->addWidget(plugIn->settingsView());
        dialog.show();
        plugIn->showProgressBar();
    }
    ASSERT_TRUE(plugIn->progressWindow);
    EXPECT_TRUE(plugIn->progressWindow->isVisible());
    QTest::mouseClick(cancelButton(), Qt::LeftButton);
    EXPECT_EQ(host.count(kCancelled), 1);
}

} // namespace

} // namespace ftp_tests
