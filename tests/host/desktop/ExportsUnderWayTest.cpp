#include "tests/host/desktop/ExportWindow.h"

using test_support::waitUntil;

TEST_F(ExportWindow, ASecondExportWaitsForTheFirst) {
    plugIn_.tell("slow-images");
    selectPictures(2);
    beginExport();
    auto* const status = window_->findChild<host::desktop::ExportStatus*>();
    ASSERT_TRUE(waitUntil([status] { return status->isVisible(); }));
    // The light table is there to be used.
    EXPECT_FALSE(QApplication::activeModalWidget());
    action("Export to Quillmark")->trigger();
    EXPECT_FALSE(exportDialog());
    auto* const waiting = status->findChild<QLabel*>(QStringLiteral("waitingLabel"));
    EXPECT_TRUE(waiting->isVisible());
    EXPECT_EQ(waiting->text().toStdString(), "1 further export waits.");
    plugIn_.tell("");
    ASSERT_TRUE(waitForSummary());
    EXPECT_FALSE(exportDialog());
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("willBeActivated")), 1);
    summary()->reject();
    EXPECT_TRUE(waitForDialog());
}

TEST_F(ExportWindow, TheRestOfAnExportGoesBeforeTheExportsThatWait) {
    plugIn_.tell("slow-images upload-breaks=1");
    selectPictures(2);
    beginExport();
    auto* const status = window_->findChild<host::desktop::ExportStatus*>();
    ASSERT_TRUE(waitUntil([status] { return status->isVisible(); }));
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForSummary());
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    EXPECT_EQ(heading(), "What remains of the export to “Smith Wedding” will be exported: 1 photograph.");
    exportDialog()->reject();
    EXPECT_TRUE(waitUntil([this] { return heading() == "2 photographs will be exported."; }));
}

TEST_F(ExportWindow, TheStatusFollowsTheRecord) {
    plugIn_.tell("slow-images");
    selectPictures(3);
    beginExport();
    auto* const status = window_->findChild<host::desktop::ExportStatus*>();
    auto* const bar = status->findChild<QProgressBar*>();
    ASSERT_TRUE(waitUntil([bar] { return bar->maximum() == 3 && bar->value() == 2; }));
    EXPECT_EQ(status->findChild<QLabel*>(QStringLiteral("exportMessage"))->text(), QStringLiteral("Step 1"));
    press(status, "cancelExportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export was cancelled.");
    EXPECT_FALSE(status->isVisible());
    EXPECT_FALSE(logged(QStringLiteral("shouldExport 2")).size());
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportWindow, TheStatusFollowsTheBytesOfAFileWhateverTheirNumber) {
    host::desktop::ExportStatus status;
    status.begin();
    auto* const bar = status.findChild<QProgressBar*>();
    for (const std::size_t total : {std::size_t{1'000}, std::size_t{6'000'000'000}}) {
        for (const std::size_t part : {1, 2, 3}) {
            status.follow({total / 4 * part, total, QStringLiteral("Step 3 of 3: Uploading a.jpg")});
            EXPECT_NEAR(static_cast<double>(bar->value()) / bar->maximum(), static_cast<double>(part) / 4,
                        0.001);
        }
    }
    status.follow({0, 0, QStringLiteral("Step 3 of 3: Uploading a.jpg"), true});
    EXPECT_EQ(bar->maximum(), 0) << "a busy bar";
    status.setCancelling();
    status.follow({1, 2, QStringLiteral("Step 3 of 3: Uploading b.jpg")});
    EXPECT_EQ(status.findChild<QLabel*>(QStringLiteral("exportMessage"))->text().toStdString(),
              "Cancelling the export…");
}

TEST_F(ExportWindow, TheStatusStaysWhenTheWindowIsMinimisedAndComesBack) {
    plugIn_.tell("slow-images");
    selectPictures(3);
    beginExport();
    auto* const status = window_->findChild<host::desktop::ExportStatus*>();
    auto* const message = status->findChild<QLabel*>(QStringLiteral("exportMessage"));
    ASSERT_TRUE(waitUntil([message] { return !message->text().isEmpty(); }));
    press(status, "cancelExportButton");
    const QString before = message->text();
    QShowEvent shownAgain;
    QCoreApplication::sendEvent(status, &shownAgain);
    EXPECT_EQ(message->text().toStdString(), before.toStdString());
    EXPECT_FALSE(status->findChild<QPushButton*>(QStringLiteral("cancelExportButton"))->isEnabled());
    ASSERT_TRUE(waitForSummary());
    summary()->reject();
    // The next one starts afresh.
    plugIn_.tell("slow-images");
    beginExport();
    ASSERT_TRUE(waitUntil([status] { return status->isVisible(); }));
    EXPECT_TRUE(status->findChild<QPushButton*>(QStringLiteral("cancelExportButton"))->isEnabled());
}

TEST_F(ExportWindow, ASummaryThatWaitsIsNoExport) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    plugIn_.tell("slow-images");
    beginExport();
    auto* const status = window_->findChild<host::desktop::ExportStatus*>();
    ASSERT_TRUE(waitUntil([status] { return status->isVisible(); }));
    ASSERT_EQ(unfinishedExports().size(), 1);
    unfinishedMenu()->actions().first()->trigger();
    EXPECT_FALSE(status->findChild<QLabel*>(QStringLiteral("waitingLabel"))->isVisible());
}

TEST_F(ExportWindow, ClosingSaysThatWhatWaitsIsGivenUp) {
    plugIn_.tell("slow-images");
    selectPictures(2);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return !logged(QStringLiteral("shouldWrite")).isEmpty(); }));
    messages_.wish = QMessageBox::No;
    window_->close();
    ASSERT_EQ(messages_.texts.size(), 1);
    EXPECT_FALSE(messages_.texts.last().contains(QStringLiteral("given up")));
    action("Export to Quillmark")->trigger();
    window_->close();
    ASSERT_EQ(messages_.texts.size(), 2);
    EXPECT_TRUE(messages_.texts.last().contains(QStringLiteral("1 further export waits and is given up")))
        << messages_.texts.last().toStdString();
    EXPECT_TRUE(window_->isVisible());
}

TEST_F(ExportWindow, APlugInThatIgnoresTheCancelDoesNotHoldTheUserUp) {
    plugIn_.tell("hangs ignores-cancel");
    selectPictures(1);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return plugIn_.log().contains(QStringLiteral("didFinishExport")); }));
    press(window_->findChild<host::desktop::ExportStatus*>(), "cancelExportButton");
    EXPECT_TRUE(waitForSummary());
}

TEST_F(ExportWindow, ClosingAsksAndCancelsBeforeItQuits) {
    plugIn_.tell("slow-images");
    selectPictures(3);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return !logged(QStringLiteral("shouldWrite")).isEmpty(); }));
    messages_.wish = QMessageBox::No;
    window_->close();
    EXPECT_TRUE(window_->isVisible());
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    messages_.wish = QMessageBox::Yes;
    window_->close();
    EXPECT_TRUE(waitUntil([this] { return !window_->isVisible(); }));
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    EXPECT_FALSE(summary());
    window_.reset();
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_EQ(foundJournals().front().record->remaining().size(), 3U);
}

TEST_F(ExportWindow, AnExportThatEndsWhileClosingIsAskedAboutHoldsNothingUp) {
    plugIn_.tell("slow-images");
    selectPictures(1);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return !logged(QStringLiteral("shouldWrite")).isEmpty(); }));
    QTimer answer; // To the question, once the export is over.
    QObject::connect(&answer, &QTimer::timeout, &answer, [this] {
        if (summary())
            messages_.wish = QMessageBox::Yes;
    });
    answer.start(5);
    window_->close();
    EXPECT_EQ(messages_.texts.size(), 2);
    EXPECT_FALSE(window_->isVisible());
    EXPECT_FALSE(summary());
}
