#include "tests/host/desktop/ExportWindow.h"

#include <QtWidgets/QScrollArea>
#include <QtWidgets/QVBoxLayout>

using test_support::waitUntil;

TEST_F(ExportWindow, CancelInTheDialogExportsNothing) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    press(exportDialog(), "cancelButton");
    ASSERT_TRUE(waitUntil([this] { return plugIn_.log().contains(QStringLiteral("willBeDeactivated")); }));
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    EXPECT_FALSE(summary());
    EXPECT_TRUE(foundJournals().empty());
    // The next dialog has a plug-in of its own.
    action("Export to Quillmark")->trigger();
    EXPECT_TRUE(waitForDialog());
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("willBeActivated")), 2);
}

TEST_F(ExportWindow, RefusedSettingsLeaveTheDialogOpen) {
    plugIn_.tell("refuses");
    selectPictures(1);
    beginExport();
    EXPECT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(exportDialog());
    EXPECT_TRUE(foundJournals().empty());
    test_support::runLoopFor(std::chrono::milliseconds(300)); // Looks at the record, if there were any.
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("progress without an export")));
}

TEST_F(ExportWindow, TheDialogSaysThatTheListsCouldNotBeLoaded) {
    plugIn_.tell("lists-fail");
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    control<QPushButton>(hostapi::panel::kLoginButton)->click();
    EXPECT_TRUE(waitUntil([this] {
        return control<QLabel>(QLatin1String("notice"))
            ->text()
            .contains(QStringLiteral("could not be loaded"));
    }));
}

TEST_F(ExportWindow, TheDialogGivesTheViewItsWholeWidthAndANoticeRoomOfItsOwn) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    QWidget& view = exportDialog()->settingsView();
    // The view has margins of its own.
    EXPECT_EQ(view.mapTo(exportDialog(), QPoint()).x(), 0);
    constexpr int kHeight = 300;
    auto* const content = new QWidget;
    content->setMinimumHeight(kHeight);
    (new QVBoxLayout(&view))->addWidget(content);
    const auto hasRoom = [this] {
        return exportDialog()->findChild<QScrollArea*>()->viewport()->height() >= kHeight;
    };
    ASSERT_TRUE(waitUntil(hasRoom));
    exportDialog()->setNotice(QStringLiteral("One line.\nAnother line.\nA third one."));
    test_support::runLoopFor(std::chrono::milliseconds(100));
    EXPECT_TRUE(hasRoom());
}
