#include "tests/host/desktop/ExportWindow.h"

#include <QtCore/QRegularExpression>
#include <QtGui/QAccessible>
#include <QtWidgets/QTreeWidget>

using test_support::waitUntil;

namespace {

void collectNameless(QAccessibleInterface* from, QStringList& nameless) {
    if (!from || from->state().invisible)
        return;
    if (from->state().focusable && from->text(QAccessible::Name).isEmpty() && from->childCount() == 0)
        nameless << QLatin1String(from->object() ? from->object()->metaObject()->className() : "no object");
    for (int i = 0; i < from->childCount(); ++i)
        collectNameless(from->child(i), nameless);
}

/// The controls of a window that can have the focus, but no name to be read out.
std::string namelessIn(QWidget* window) {
    QStringList nameless;
    collectNameless(QAccessible::queryAccessibleInterface(window), nameless);
    return nameless.join(QLatin1Char(' ')).toStdString();
}

class Accessibility : public ExportWindow {
protected:
    ~Accessibility() override { QApplication::setPalette(palette_); }

    /// Where the Tab key leads to, from control to control.
    bool tabReaches(QWidget* window, const QWidget* target) {
        for (int i = 0; i < 40 && window->focusWidget() != target; ++i)
            QTest::keyClick(window->focusWidget() ? window->focusWidget() : window, Qt::Key_Tab);
        return window->focusWidget() == target;
    }

private:
    const QPalette palette_ = QApplication::palette();
};

} // namespace

TEST_F(Accessibility, EveryControlHasAName) {
    plugIn_.tell("leaves-out=0");
    selectPictures(2);
    EXPECT_EQ(namelessIn(window_.get()), "");
    exportToTheSummary();
    EXPECT_EQ(namelessIn(summary()), "");
    EXPECT_FALSE(summary()->accessibleDescription().isEmpty());
}

TEST_F(Accessibility, TheProgressTellsItsStageAndHowFarItIs) {
    plugIn_.tell("slow-images");
    selectPictures(3);
    beginExport();
    QAccessibleInterface* const bar =
        QAccessible::queryAccessibleInterface(window_->findChild<QProgressBar*>());
    ASSERT_TRUE(waitUntil([bar] { return bar->valueInterface()->currentValue() == 2; }));
    EXPECT_EQ(bar->valueInterface()->maximumValue(), 3);
    EXPECT_EQ(bar->text(QAccessible::Name).toStdString(), "Export progress, Step 1");
    EXPECT_FALSE(bar->state().invisible);
}

TEST_F(Accessibility, WhatIsToldByTheWayIsANotification) {
    host::desktop::NoticeBar notice;
    QAccessibleInterface* const label = QAccessible::queryAccessibleInterface(
        notice.findChild<host::desktop::AnnouncedLabel*>(QStringLiteral("noticeText")));
    EXPECT_TRUE(label->state().invisible) << "there is nothing to read out";
    notice.showNotice(QStringLiteral("1 file was passed over."));
    EXPECT_FALSE(label->state().invisible);
    EXPECT_EQ(label->role(), QAccessible::Notification);
    EXPECT_EQ(label->text(QAccessible::Name).toStdString(), "1 file was passed over.");
}

TEST_F(Accessibility, AnExportNeedsTheKeyboardAlone) {
    plugIn_.tell("upload-breaks=0");
    selectPictures(2);
    table()->clearSelection();
    table()->setFocus();
    QTest::keyClick(table(), Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(window_.get(), Qt::Key_E, Qt::ControlModifier);
    ASSERT_TRUE(waitForDialog());
    logIn();
    choose(0, QStringLiteral("Ceremony"));
    auto* const button = exportDialog()->findChild<QPushButton*>(QStringLiteral("exportButton"));
    ASSERT_TRUE(tabReaches(exportDialog(), button));
    QTest::keyClick(button, Qt::Key_Space);
    ASSERT_TRUE(waitForSummary());
    // What one most likely wants has the focus.
    EXPECT_EQ(summary()->focusWidget(),
              summary()->findChild<QWidget*>(QStringLiteral("exportRemainingButton")));
    QTest::keyClick(summary(), Qt::Key_Escape);
    EXPECT_TRUE(waitUntil([this] { return !summary(); }));
}

TEST_F(Accessibility, ARunningExportIsCancelledByTheKeyboard) {
    plugIn_.tell("slow-images");
    selectPictures(3);
    beginExport();
    auto* const button = window_->findChild<QPushButton*>(QStringLiteral("cancelExportButton"));
    ASSERT_TRUE(waitUntil([button] { return button->isVisible(); }));
    ASSERT_TRUE(tabReaches(window_.get(), button));
    QTest::keyClick(button, Qt::Key_Space);
    EXPECT_TRUE(waitForSummary());
}

TEST_F(Accessibility, EscapeClosesTheDialogAndExportsNothing) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    QTest::keyClick(exportDialog(), Qt::Key_Escape);
    EXPECT_TRUE(waitUntil([this] { return plugIn_.log().contains(QStringLiteral("willBeDeactivated")); }));
}

TEST_F(Accessibility, AllColoursAreThePalettes) {
    QPalette dark;
    for (const QPalette::ColorRole role : {QPalette::Window, QPalette::Base, QPalette::Button})
        dark.setColor(role, QColor(30, 30, 30));
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        dark.setColor(role, QColor(230, 230, 230));
    QApplication::setPalette(dark);
    folder_.picture(QStringLiteral("0.png"));
    folder_.file(QStringLiteral("bad.jpg"), "no picture");
    window_->open({folder_.bytes()});
    ASSERT_TRUE(waitUntil([this] { return table()->model()->rowCount() == 2; }));
    const QModelIndex bad = table()->model()->index(1, 0);
    ASSERT_TRUE(waitUntil([bad] {
        return bad.data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read"));
    }));
    const QImage shown = table()->viewport()->grab().toImage();
    EXPECT_EQ(shown.pixelColor(shown.width() - 2, shown.height() - 2), QColor(30, 30, 30));
    // Names are written in light letters: the brightest point of a cell's last line is one's.
    const QRect name = table()->visualRect(table()->model()->index(0, 0));
    int brightest = 0;
    for (int x = name.left(); x <= name.right(); ++x) {
        for (int y = name.bottom() - 20; y < name.bottom() - 4; ++y)
            brightest =
                std::max(brightest, shown.pixelColor(QPoint(x, y) * shown.devicePixelRatio()).lightness());
    }
    EXPECT_GT(brightest, 180);
}
