#include "tests/host/desktop/DrawnTexts.h"
#include "tests/host/desktop/LightTableWindow.h"
#include "tests/support/MessageAnswers.h"
#include "tests/support/Pictures.h"

#include <QtGui/QAccessible>
#include <QtWidgets/QScrollBar>

using namespace host::desktop;
using test_support::waitUntil;

TEST_F(LightTableWindow, ShowsThePicturesOfAFolderWithTheirThumbnails) {
    fill(3);
    EXPECT_TRUE(waitUntil([this] { return isLoaded(0) && isLoaded(1) && isLoaded(2); }));
    EXPECT_EQ(window_.findChild<QLabel*>(QStringLiteral("selectionLabel"))->text().toStdString(),
              "3 photographs");
}

TEST_F(LightTableWindow, LoadsAtMostAScreenfulAhead) {
    fill(400);
    const auto [first, last] = table()->visibleRows();
    ASSERT_EQ(first, 0);
    ASSERT_GT(last, 3);
    ASSERT_LT(last, 150);
    const int ahead = 2 * last + 1;
    EXPECT_TRUE(waitUntil([this, ahead] { return isLoaded(ahead); }));
    // Whatever comes now has been asked for: a picture from elsewhere shows that nothing else was.
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum());
    EXPECT_TRUE(waitUntil([this] { return isLoaded(399); }));
    EXPECT_FALSE(isLoaded(ahead + 1));
    EXPECT_FALSE(isLoaded(table()->visibleRows().first - 1));
}

TEST_F(LightTableWindow, KnowsWhichRowsAreInView) {
    fill(200);
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum() / 2);
    const auto [first, last] = table()->visibleRows();
    const QRect viewport = table()->viewport()->rect();
    EXPECT_TRUE(viewport.intersects(table()->visualRect(index(first))));
    EXPECT_TRUE(viewport.intersects(table()->visualRect(index(last))));
    EXPECT_FALSE(viewport.intersects(table()->visualRect(index(first - 1))));
    EXPECT_FALSE(viewport.intersects(table()->visualRect(index(last + 1))));
}

TEST_F(LightTableWindow, ShowsWhatCannotBeReadAsSuch) {
    folder_.picture(QStringLiteral("a.png"));
    folder_.file(QStringLiteral("b.jpg"), "no picture");
    open({folder_.bytes()}, 2);
    ASSERT_TRUE(waitUntil([this] { return isLoaded(0) && isUnreadable(1); }));
    const DrawnTexts drawn(*table()->viewport());
    EXPECT_EQ(drawn.texts.join(QLatin1Char('|')).toStdString(), "a.png|Cannot be read|b.jpg");
    EXPECT_EQ(drawn.pictureCount, 2) << "the photograph, and a warning";
}

TEST_F(LightTableWindow, SelectsWithTheMouseLikeAFileManager) {
    fill(8);
    const auto click = [this](int row, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::mouseClick(table()->viewport(), Qt::LeftButton, modifiers, centre(row));
    };
    click(1);
    EXPECT_EQ(selectedCount(), 1);
    click(4, Qt::ShiftModifier);
    EXPECT_EQ(selectedCount(), 4);
    click(2, Qt::ControlModifier);
    EXPECT_EQ(selectedCount(), 3);
    click(6);
    EXPECT_EQ(selectedCount(), 1);
    // A rubber band from the empty place below the last one over all.
    const QPoint corner = table()->viewport()->rect().bottomRight() - QPoint(2, 2);
    ASSERT_FALSE(table()->indexAt(corner).isValid());
    QTest::mousePress(table()->viewport(), Qt::LeftButton, {}, corner);
    QTest::mouseMove(table()->viewport(), corner / 2);
    QTest::mouseMove(table()->viewport(), QPoint(1, 1));
    QTest::mouseRelease(table()->viewport(), Qt::LeftButton, {}, QPoint(1, 1));
    EXPECT_EQ(selectedCount(), 8);
}

TEST_F(LightTableWindow, SelectsWithTheKeyboardAlone) {
    fill(8);
    table()->setFocus();
    ASSERT_TRUE(waitUntil([this] { return table()->currentIndex().isValid(); }));
    key(Qt::Key_Right);
    EXPECT_EQ(table()->currentIndex().row(), 1);
    EXPECT_EQ(selectedCount(), 1);
    key(Qt::Key_Right, Qt::ShiftModifier);
    EXPECT_EQ(selectedCount(), 2);
    key(Qt::Key_Right, Qt::ControlModifier);
    key(Qt::Key_Right, Qt::ControlModifier);
    key(Qt::Key_Space, Qt::ControlModifier);
    EXPECT_EQ(selectedCount(), 3);
    action("Select All")->trigger();
    EXPECT_EQ(selectedCount(), 8);
    action("Select None")->trigger();
    EXPECT_EQ(selectedCount(), 0);
    EXPECT_EQ(action("Select All")->shortcut(), QKeySequence(QKeySequence::SelectAll));
}

TEST_F(LightTableWindow, TheSliderChangesTheThumbnailsAndLoadsLargerOnes) {
    folder_.picture(QStringLiteral("a.png"), {1200, 800});
    open({folder_.bytes()}, 1);
    auto* const slider = window_.findChild<QSlider*>();
    slider->setValue(slider->minimum());
    const auto width = [this] { return index(0).data(Qt::DecorationRole).value<QImage>().width(); };
    ASSERT_TRUE(waitUntil([&width] { return width() >= LightTable::kSmallestSide; }));
    const QSize before = table()->visualRect(index(0)).size();
    for (int i = 0; i < 20; ++i)
        action("Larger Thumbnails")->trigger();
    EXPECT_EQ(slider->value(), LightTable::kLargestSide);
    EXPECT_GT(table()->visualRect(index(0)).width(), before.width());
    EXPECT_TRUE(waitUntil(
        [this, &width] { return width() >= LightTable::kLargestSide * table()->devicePixelRatioF(); }));
}

TEST_F(LightTableWindow, SortsByTypeAtTheMenusWord) {
    folder_.picture(QStringLiteral("a.png"));
    folder_.picture(QStringLiteral("b.jpg"));
    open({folder_.bytes()}, 2);
    action("Sort by Type")->trigger();
    EXPECT_EQ(index(0).data().toString(), QStringLiteral("b.jpg"));
}

TEST_F(LightTableWindow, SortsByCaptureTimeAtTheMenusWordAlsoWhatIsAddedLater) {
    const auto taken = [this](const char* name, const char* time) {
        vips::VImage picture = test_support::gradient(40, 40);
        picture.set("exif-ifd2-DateTimeOriginal", time);
        return folder_.file(QLatin1String(name), test_support::file(picture, ".jpg"));
    };
    taken("a.jpg", "2024:06:03 12:00:00");
    taken("b.jpg", "2024:06:01 12:00:00");
    open({folder_.bytes()}, 2);
    action("Sort by Capture Time")->trigger();
    EXPECT_TRUE(waitUntil([this] { return index(0).data().toString() == QStringLiteral("b.jpg"); }));
    open({taken("c.jpg", "2024:06:02 12:00:00")}, 3);
    EXPECT_TRUE(waitUntil([this] { return index(1).data().toString() == QStringLiteral("c.jpg"); }));
}

TEST_F(LightTableWindow, HelpTellsOfTheKeysAndTheVersion) {
    MessageAnswers messages;
    action("Quillmark Help")->trigger();
    ASSERT_TRUE(waitUntil([&messages] { return messages.texts.size() == 1; }));
    EXPECT_TRUE(messages.texts.last().contains(QStringLiteral("Space")));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.2.3"));
    action("About Quillmark")->trigger();
    ASSERT_TRUE(waitUntil([&messages] { return messages.texts.size() == 2; }));
    EXPECT_TRUE(messages.texts.last().contains(QStringLiteral("1.2.3")))
        << messages.texts.last().toStdString();
}

TEST_F(LightTableWindow, AssistiveToolsFindTheTableItsCellsAndTheControls) {
    fill(2);
    QAccessibleInterface* const list = QAccessible::queryAccessibleInterface(table());
    ASSERT_TRUE(list);
    EXPECT_EQ(list->text(QAccessible::Name), QStringLiteral("Light table"));
    QAccessibleInterface* const cell = list->tableInterface()->cellAt(1, 0);
    ASSERT_TRUE(cell);
    EXPECT_EQ(cell->text(QAccessible::Name).toStdString(), "IMG_2.png, project Smith");
    EXPECT_EQ(QAccessible::queryAccessibleInterface(window_.findChild<QSlider*>())->text(QAccessible::Name),
              QStringLiteral("Thumbnail size"));
}
