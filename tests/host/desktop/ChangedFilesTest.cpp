#include "tests/host/desktop/LightTableWindow.h"

#include <QtWidgets/QScrollBar>

using namespace host::desktop;
using test_support::waitUntil;

namespace {

void setFileTime(const QByteArray& path, const QDate& day) {
    QFile file(QFile::decodeName(path));
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(day.startOfDay(), QFileDevice::FileModificationTime));
}

} // namespace

TEST_F(LightTableWindow, LooksAnewAtWhatIsOpenedAgain) {
    const QByteArray path = folder_.file(QStringLiteral("a.png"), "no picture");
    open({path}, 1);
    ASSERT_TRUE(waitUntil([this] { return isUnreadable(0); }));
    action("Clear the Light Table")->trigger();
    open({path}, 1);
    EXPECT_TRUE(waitUntil([this] { return isUnreadable(0); }));
    action("Clear the Light Table")->trigger();
    folder_.picture(QStringLiteral("a.png"));
    open({path}, 1);
    EXPECT_TRUE(waitUntil([this] { return isLoaded(0); }));
    EXPECT_FALSE(isUnreadable(0));
}

TEST_F(LightTableWindow, LooksAnewAtWhatHasChangedWhenItsUserComesBack) {
    const auto color = [this](int row) {
        const auto thumbnail = index(row).data(Qt::DecorationRole).value<QImage>();
        return thumbnail.isNull() ? QColor() : thumbnail.pixelColor(0, 0);
    };
    const QByteArray path = folder_.picture(QStringLiteral("a.png"), {600, 400}, Qt::red);
    const QByteArray mended = folder_.file(QStringLiteral("b.png"), "no picture");
    const QByteArray gone = folder_.picture(QStringLiteral("c.png"), {60, 40}, Qt::red);
    open({path, mended, gone}, 3);
    ASSERT_TRUE(waitUntil([&] { return color(0) == Qt::red && color(2) == Qt::red; }));
    table()->setCurrentIndex(index(0));
    key(Qt::Key_Space);
    ASSERT_TRUE(preview()->isVisible());

    QWidget otherProgram;
    otherProgram.show();
    otherProgram.activateWindow();
    ASSERT_TRUE(waitUntil([this] { return !window_.isActiveWindow(); }));
    folder_.picture(QStringLiteral("a.png"), {600, 400}, Qt::blue);
    folder_.picture(QStringLiteral("b.png"), {60, 40}, Qt::blue);
    ASSERT_TRUE(QFile::remove(QFile::decodeName(gone)));
    window_.activateWindow();
    EXPECT_TRUE(waitUntil([&] { return color(0) == Qt::blue && color(1) == Qt::blue; }));
    EXPECT_FALSE(isUnreadable(1));
    EXPECT_TRUE(waitUntil([this] {
        const QImage shown = preview()->grab().toImage();
        return shown.pixelColor(shown.rect().center()) == Qt::blue;
    }));
    // Of what is gone the last that was seen stays.
    EXPECT_EQ(color(2), QColor(Qt::red));
}

TEST_F(LightTableWindow, TriesAgainWhatCouldNotBeReadForAMoment) {
    constexpr int kCount = 200;
    const QString away = folder_.path() + QStringLiteral(" away");
    for (int i = 0; i < kCount; ++i)
        folder_.picture(QStringLiteral("%1.png").arg(i));
    const int damaged = kCount;
    folder_.file(QStringLiteral("damaged.png"), "no picture");
    open({folder_.bytes()}, kCount + 1);
    // As the folder of a server that cannot be reached.
    ASSERT_TRUE(QDir().rename(folder_.path(), away));
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum());
    ASSERT_TRUE(waitUntil([&] { return isUnreadable(kCount - 1) && isUnreadable(damaged); }));
    ASSERT_TRUE(QDir().rename(away, folder_.path()));

    int wordsOfDamaged = 0;
    QObject::connect(model(), &QAbstractItemModel::dataChanged, &window_, [&](const QModelIndex& changed) {
        if (changed.row() == damaged) {
            ++wordsOfDamaged;
            EXPECT_TRUE(isUnreadable(damaged));
        }
    });
    QWidget otherProgram;
    otherProgram.show();
    otherProgram.activateWindow();
    ASSERT_TRUE(waitUntil([this] { return !window_.isActiveWindow(); }));
    window_.activateWindow();
    EXPECT_TRUE(waitUntil([&] { return isLoaded(kCount - 1) && wordsOfDamaged > 0; }));
    EXPECT_FALSE(isUnreadable(kCount - 1));
    // What truly cannot be read is tried once.
    test_support::runLoopFor(std::chrono::milliseconds(200));
    EXPECT_EQ(wordsOfDamaged, 1);
}

TEST_F(LightTableWindow, TriesAgainWhatCouldNotBeReadWhenItIsAddedOnceMore) {
    constexpr int kCount = 200;
    const QString away = folder_.path() + QStringLiteral(" away");
    fill(kCount);
    ASSERT_TRUE(QDir().rename(folder_.path(), away));
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum());
    ASSERT_TRUE(waitUntil([this] { return isUnreadable(kCount - 1); }));
    ASSERT_TRUE(QDir().rename(away, folder_.path()));
    window_.open({folder_.bytes()});
    EXPECT_TRUE(waitUntil([this] { return isLoaded(kCount - 1); }));
}

TEST_F(LightTableWindow, SortsWhatHasChangedByItsNewTime) {
    const QByteArray older = folder_.picture(QStringLiteral("a.png"));
    const QByteArray newer = folder_.picture(QStringLiteral("b.png"));
    setFileTime(older, QDate(2020, 1, 1));
    setFileTime(newer, QDate(2021, 1, 1));
    open({older, newer}, 2);
    action("Sort by Capture Time")->trigger();
    EXPECT_EQ(index(0).data().toString(), QStringLiteral("a.png"));
    QWidget otherProgram;
    otherProgram.show();
    otherProgram.activateWindow();
    ASSERT_TRUE(waitUntil([this] { return !window_.isActiveWindow(); }));
    setFileTime(older, QDate(2022, 1, 1));
    window_.activateWindow();
    EXPECT_TRUE(waitUntil([this] { return index(0).data().toString() == QStringLiteral("b.png"); }));
}
