#include "tests/host/desktop/DrawnTexts.h"
#include "tests/host/desktop/LightTableWindow.h"

using namespace host::desktop;
using test_support::waitUntil;

TEST_F(LightTableWindow, SpaceOpensThePreviewAndTheKeysGoThroughIt) {
    fill(3);
    table()->setCurrentIndex(index(0));
    table()->setFocus();
    key(Qt::Key_Space);
    ASSERT_TRUE(waitUntil([this] { return preview()->isVisible(); }));
    EXPECT_EQ(preview()->accessibleName().toStdString(), "IMG_1.png, project Smith");
    QTest::keyClick(preview(), Qt::Key_Right);
    EXPECT_EQ(preview()->index().row(), 1);
    EXPECT_EQ(table()->currentIndex().row(), 1);
    QTest::keyClick(preview(), Qt::Key_End);
    QTest::keyClick(preview(), Qt::Key_Right);
    EXPECT_EQ(preview()->index().row(), 2);
    QTest::keyClick(preview(), Qt::Key_Escape);
    EXPECT_FALSE(preview()->isVisible());
    EXPECT_TRUE(table()->isVisible());
}

TEST_F(LightTableWindow, ThePreviewLeavesTheSelectionAlone) {
    fill(3);
    table()->selectAll();
    table()->selectionModel()->setCurrentIndex(index(0), QItemSelectionModel::NoUpdate);
    key(Qt::Key_Space);
    QTest::keyClick(preview(), Qt::Key_Right);
    QTest::keyClick(preview(), Qt::Key_Escape);
    EXPECT_EQ(selectedCount(), 3);
    EXPECT_EQ(table()->currentIndex().row(), 1);
}

TEST_F(LightTableWindow, ADoubleClickOpensThePreviewOfThatPhotograph) {
    folder_.picture(QStringLiteral("a.png"), {900, 600}, Qt::red);
    folder_.picture(QStringLiteral("b.png"), {900, 600}, Qt::blue);
    open({folder_.bytes()}, 2);
    QTest::mouseClick(table()->viewport(), Qt::LeftButton, {}, centre(1));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {}, centre(1));
    ASSERT_TRUE(preview()->isVisible());
    const auto shown = [this] {
        const QImage image = preview()->grab().toImage();
        return image.pixelColor(image.rect().center());
    };
    EXPECT_TRUE(waitUntil([&shown] { return shown() == QColor(Qt::blue); }));
}

TEST_F(LightTableWindow, ThePreviewSaysWhatCannotBeRead) {
    open({folder_.file(QStringLiteral("a.jpg"), "no picture")}, 1);
    table()->setCurrentIndex(index(0));
    action("Preview")->trigger();
    EXPECT_TRUE(
        waitUntil([this] { return preview()->accessibleName().contains(QStringLiteral("cannot be read")); }));
    EXPECT_EQ(DrawnTexts(*preview()).texts.join(QLatin1Char('|')).toStdString(),
              "a.jpg (1 of 1)|This file cannot be read as a picture.");
}
