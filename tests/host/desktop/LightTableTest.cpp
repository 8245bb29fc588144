#include "host/desktop/MainWindow.h"

#include "host/desktop/PhotographFiles.h"
#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/MessageAnswers.h"
#include "tests/support/Pictures.h"
#include "tests/support/Waiting.h"

#include <QtCore/QMimeData>
#include <QtGui/QAccessible>
#include <QtGui/QDropEvent>
#include <QtTest/QTest>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QScrollBar>

#include <gtest/gtest.h>

#include <sys/resource.h>

using namespace host::desktop;
using test_support::waitUntil;

namespace {

class Window : public testing::Test {
protected:
    void SetUp() override {
        window_.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window_));
    }

    void fill(int count) {
        for (int i = 0; i < count; ++i)
            folder_.picture(QStringLiteral("IMG_%1.png").arg(i + 1), {30 + i % 7, 20});
        open({folder_.bytes()}, count);
    }
    void open(const std::vector<QByteArray>& paths, int count) {
        window_.open(paths);
        ASSERT_TRUE(waitUntil([this, count] { return model()->rowCount() == count; }));
    }

    LightTable* table() const { return window_.findChild<LightTable*>(); }
    Preview* preview() const { return window_.findChild<Preview*>(); }
    QAbstractItemModel* model() const { return table()->model(); }
    QModelIndex index(int row) const { return model()->index(row, 0); }
    int selectedCount() const {
        return static_cast<int>(table()->selectionModel()->selectedIndexes().size());
    }
    /// Of the notice about the files that were opened; empty where there is none.
    QString noticeText() const {
        auto* const notice = window_.findChild<NoticeBar*>(QStringLiteral("fileNotice"));
        return notice->isVisible() ? notice->findChild<QLabel*>(QStringLiteral("noticeText"))->text()
                                   : QString();
    }
    bool isLoaded(int row) const { return !index(row).data(Qt::DecorationRole).value<QImage>().isNull(); }
    QPoint centre(int row) const { return table()->visualRect(index(row)).center(); }
    QAction* action(const char* text) const {
        for (QAction* const action : window_.findChildren<QAction*>()) {
            if (action->text().remove(QLatin1Char('&')).startsWith(QLatin1String(text)))
                return action;
        }
        return nullptr;
    }
    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : table(), key, modifiers);
    }

    static void setFileTime(const QByteArray& path, const QDate& day) {
        QFile file(QFile::decodeName(path));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(file.setFileTime(day.startOfDay(), QFileDevice::FileModificationTime));
    }

    PhotographFolder folder_;
    MainWindow window_{
        {QStringLiteral(QUILLMARK_BUNDLE_DIR), folder_.filePath(QStringLiteral("journals")), {}, {}}};
};

} // namespace

TEST_F(Window, ShowsThePicturesOfAFolderWithTheirThumbnails) {
    fill(3);
    EXPECT_TRUE(waitUntil([this] { return isLoaded(0) && isLoaded(1) && isLoaded(2); }));
    EXPECT_EQ(window_.findChild<QLabel*>(QStringLiteral("selectionLabel"))->text().toStdString(),
              "3 photographs");
}

TEST_F(Window, LoadsAtMostAScreenfulAhead) {
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

TEST_F(Window, KnowsWhichRowsAreInView) {
    fill(200);
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum() / 2);
    const auto [first, last] = table()->visibleRows();
    const QRect viewport = table()->viewport()->rect();
    EXPECT_TRUE(viewport.intersects(table()->visualRect(index(first))));
    EXPECT_TRUE(viewport.intersects(table()->visualRect(index(last))));
    EXPECT_FALSE(viewport.intersects(table()->visualRect(index(first - 1))));
    EXPECT_FALSE(viewport.intersects(table()->visualRect(index(last + 1))));
}

TEST_F(Window, ShowsWhatCannotBeReadAsSuch) {
    open({folder_.file(QStringLiteral("a.jpg"), "no picture")}, 1);
    EXPECT_TRUE(waitUntil([this] {
        return index(0).data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read"));
    }));
}

TEST_F(Window, LooksAnewAtWhatIsOpenedAgain) {
    const auto isUnreadable = [this] {
        return index(0).data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read"));
    };
    const QByteArray path = folder_.file(QStringLiteral("a.png"), "no picture");
    open({path}, 1);
    ASSERT_TRUE(waitUntil(isUnreadable));
    action("Clear the Light Table")->trigger();
    open({path}, 1);
    EXPECT_TRUE(waitUntil(isUnreadable));
    action("Clear the Light Table")->trigger();
    folder_.picture(QStringLiteral("a.png"));
    open({path}, 1);
    EXPECT_TRUE(waitUntil([this] { return isLoaded(0); }));
    EXPECT_FALSE(isUnreadable());
}

TEST_F(Window, LooksAnewAtWhatHasChangedWhenItsUserComesBack) {
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
    EXPECT_FALSE(index(1).data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read")));
    EXPECT_TRUE(waitUntil([this] {
        const QImage shown = preview()->grab().toImage();
        return shown.pixelColor(shown.rect().center()) == Qt::blue;
    }));
    // Of what is gone the last that was seen stays.
    EXPECT_EQ(color(2), QColor(Qt::red));
}

TEST_F(Window, TriesAgainWhatCouldNotBeReadForAMoment) {
    constexpr int kCount = 200;
    const QString away = folder_.path() + QStringLiteral(" away");
    const auto isUnreadable = [this](int row) {
        return index(row).data(Qt::AccessibleTextRole).toString().contains(QStringLiteral("cannot be read"));
    };
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

TEST_F(Window, TriesAgainWhatCouldNotBeReadWhenItIsAddedOnceMore) {
    constexpr int kCount = 200;
    const QString away = folder_.path() + QStringLiteral(" away");
    fill(kCount);
    ASSERT_TRUE(QDir().rename(folder_.path(), away));
    table()->verticalScrollBar()->setValue(table()->verticalScrollBar()->maximum());
    ASSERT_TRUE(waitUntil([this] {
        return index(kCount - 1)
            .data(Qt::AccessibleTextRole)
            .toString()
            .contains(QStringLiteral("cannot be read"));
    }));
    ASSERT_TRUE(QDir().rename(away, folder_.path()));
    window_.open({folder_.bytes()});
    EXPECT_TRUE(waitUntil([this] { return isLoaded(kCount - 1); }));
}

TEST_F(Window, SortsWhatHasChangedByItsNewTime) {
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

TEST_F(Window, SelectsWithTheMouseLikeAFileManager) {
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

TEST_F(Window, SelectsWithTheKeyboardAlone) {
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

TEST_F(Window, DroppedFilesAndFoldersAreAddedAndStayWhereTheyWere) {
    const QByteArray path = folder_.picture(QStringLiteral("a.png"));
    QMimeData data;
    data.setUrls({QUrl::fromLocalFile(folder_.path())});
    QDragEnterEvent enter({10, 10}, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(table()->viewport(), &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop({10, 10}, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
    drop.setDropAction(Qt::MoveAction);
    QCoreApplication::sendEvent(table()->viewport(), &drop);
    EXPECT_EQ(drop.dropAction(), Qt::CopyAction);
    EXPECT_TRUE(waitUntil([this] { return model()->rowCount() == 1; }));
    EXPECT_TRUE(QFile::exists(QFile::decodeName(path)));
}

TEST_F(Window, SpaceOpensThePreviewAndTheKeysGoThroughIt) {
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

TEST_F(Window, ThePreviewLeavesTheSelectionAlone) {
    fill(3);
    table()->selectAll();
    table()->selectionModel()->setCurrentIndex(index(0), QItemSelectionModel::NoUpdate);
    key(Qt::Key_Space);
    QTest::keyClick(preview(), Qt::Key_Right);
    QTest::keyClick(preview(), Qt::Key_Escape);
    EXPECT_EQ(selectedCount(), 3);
    EXPECT_EQ(table()->currentIndex().row(), 1);
}

TEST_F(Window, ADoubleClickOpensThePreviewOfThatPhotograph) {
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

TEST_F(Window, ThePreviewSaysWhatCannotBeRead) {
    open({folder_.file(QStringLiteral("a.jpg"), "no picture")}, 1);
    table()->setCurrentIndex(index(0));
    action("Preview")->trigger();
    EXPECT_TRUE(
        waitUntil([this] { return preview()->accessibleName().contains(QStringLiteral("cannot be read")); }));
}

TEST_F(Window, AProjectIsRenamedForTheSelection) {
    fill(3);
    EXPECT_FALSE(action("Rename Project")->isEnabled());
    table()->selectionModel()->select(index(1), QItemSelectionModel::Select);
    QTimer::singleShot(0, [] {
        auto* const dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        ASSERT_TRUE(dialog);
        auto* const field = dialog->findChild<QLineEdit*>();
        EXPECT_EQ(field->text(), QStringLiteral("Smith"));
        field->setText(QStringLiteral("Jones"));
        dialog->accept();
    });
    action("Rename Project")->trigger();
    EXPECT_EQ(index(0).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Smith"));
    EXPECT_EQ(index(1).data(PhotographModel::ProjectRole).toString(), QStringLiteral("Jones"));
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    EXPECT_EQ(label->text().toStdString(), "1 of 3 photographs selected, project “Jones”");
    table()->selectAll();
    EXPECT_EQ(label->text().toStdString(), "3 of 3 photographs selected, several projects");
}

TEST_F(Window, AProjectsNameThatNoFolderCouldHaveIsRefused) {
    fill(1);
    table()->selectAll();
    const std::vector<QString> refused{
        QStringLiteral("a/b"),          QStringLiteral(".."), QStringLiteral("."),
        QStringLiteral("Smith\nJones"), QStringLiteral(" "),  QString(256, QLatin1Char('x')),
        QString(128, QChar(0xFC)),
    };
    QTimer::singleShot(0, [&refused] {
        auto* const dialog = QApplication::activeModalWidget();
        ASSERT_TRUE(dialog);
        auto* const field = dialog->findChild<QLineEdit*>();
        auto* const fault = dialog->findChild<QLabel*>(QStringLiteral("fault"));
        auto* const button = dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok);
        for (const QString& name : refused) {
            field->setText(name);
            EXPECT_FALSE(button->isEnabled()) << name.toStdString();
            EXPECT_FALSE(fault->text().isEmpty()) << name.toStdString();
            QTest::keyClick(field, Qt::Key_Return);
            EXPECT_TRUE(dialog->isVisible()) << name.toStdString();
        }
        field->setText(QStringLiteral("..x & Söhne"));
        EXPECT_TRUE(fault->text().isEmpty()) << fault->text().toStdString();
        QTest::keyClick(field, Qt::Key_Return);
    });
    action("Rename Project")->trigger();
    EXPECT_EQ(index(0).data(PhotographModel::ProjectRole).toString(), QStringLiteral("..x & Söhne"));
}

TEST_F(Window, ShowsMarkupInAProjectsNameAsItStands) {
    QDir(folder_.path()).mkdir(QStringLiteral("<b>Smith"));
    folder_.picture(QStringLiteral("<b>Smith/a.png"), {30, 20});
    open({QFile::encodeName(folder_.filePath(QStringLiteral("<b>Smith")))}, 1);
    table()->selectAll();
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    EXPECT_EQ(label->text().toStdString(), "1 of 1 photograph selected, project “<b>Smith”");
    // Read as markup it would take less room.
    EXPECT_GE(label->sizeHint().width(), label->fontMetrics().horizontalAdvance(label->text()));
}

TEST_F(Window, TheSliderChangesTheThumbnailsAndLoadsLargerOnes) {
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

TEST_F(Window, SortsByTypeAtTheMenusWord) {
    folder_.picture(QStringLiteral("a.png"));
    folder_.picture(QStringLiteral("b.jpg"));
    open({folder_.bytes()}, 2);
    action("Sort by Type")->trigger();
    EXPECT_EQ(index(0).data().toString(), QStringLiteral("b.jpg"));
}

TEST_F(Window, SortsByCaptureTimeAtTheMenusWordAlsoWhatIsAddedLater) {
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

TEST_F(Window, ClearingTheTableDeletesNoFile) {
    fill(2);
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(model()->rowCount(), 0);
    EXPECT_EQ(QDir(folder_.path()).entryList(QDir::Files).size(), 2);
}

TEST_F(Window, WhatIsFoundAfterTheTableWasClearedStaysAway) {
    for (int i = 0; i < 3; ++i)
        folder_.picture(QStringLiteral("%1.png").arg(i));
    window_.open({folder_.bytes()});
    action("Clear the Light Table")->trigger();
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    open({folder_.picture(QStringLiteral("Jones/a.png"))}, 1);
    test_support::runLoopFor(std::chrono::milliseconds(200));
    EXPECT_EQ(model()->rowCount(), 1);
    EXPECT_EQ(index(0).data().toString(), QStringLiteral("a.png"));
}

TEST_F(Window, SaysWhatWasPassedOverAndStillHowManyAreSelected) {
    const QByteArray notes = folder_.file(QStringLiteral("notes.txt"), "x");
    open({folder_.picture(QStringLiteral("a.png")), notes}, 1);
    EXPECT_EQ(noticeText().toStdString(), "1 file is no picture, or is not there, and was passed over.");
    EXPECT_TRUE(window_.findChild<QLabel*>(QStringLiteral("selectionLabel"))->isVisible());
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(noticeText().toStdString(), "");
    window_.open({notes, notes});
    EXPECT_TRUE(waitUntil([this] {
        return noticeText() ==
               QStringLiteral("2 files are no pictures, or are not there, and were passed over.");
    }));
}

TEST_F(Window, SaysWhichFolderCannotBeReadAndWhy) {
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{0, usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const FoundPhotographs found = findPhotographs({folder_.bytes()});
    setrlimit(RLIMIT_NOFILE, &usual);
    ASSERT_EQ(found.unreadFolders.size(), 1U);
    EXPECT_EQ(found.unreadFolders.front().path, folder_.path());
    EXPECT_EQ(found.unreadFolders.front().error.toStdString(), "Too many open files");
}

TEST_F(Window, AnEmptyFolderIsCalledSo) {
    window_.open({folder_.bytes()});
    EXPECT_TRUE(waitUntil([this] { return table()->emptyText().contains(QStringLiteral("“Smith”")); }));
    EXPECT_EQ(window_.findChild<QLabel*>(QStringLiteral("selectionLabel"))->text().toStdString(),
              "No photographs");
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(table()->emptyText().toStdString(), "Open a folder, or drop photographs here.");
}

TEST_F(Window, AnEmptyFolderThatIsAddedToOthersIsCalledSo) {
    fill(1);
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    window_.open({folder_.bytes() + "/Jones"});
    EXPECT_TRUE(waitUntil(
        [this] { return noticeText() == QStringLiteral("There are no photographs in “Jones” itself."); }));
}

TEST_F(Window, ItsTitleNamesTheFolder) {
    EXPECT_EQ(window_.windowTitle().toStdString(), "Quillmark");
    fill(2);
    EXPECT_EQ(window_.windowTitle().toStdString(), "Smith – Quillmark");
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    open({folder_.picture(QStringLiteral("Jones/a.png"))}, 3);
    EXPECT_EQ(window_.windowTitle().toStdString(), "Several folders – Quillmark");
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(window_.windowTitle().toStdString(), "Quillmark");
}

TEST_F(Window, ALongProjectsNameIsCutWithAnEllipsisAndWidensNothing) {
    fill(1);
    auto* const label = window_.findChild<QLabel*>(QStringLiteral("selectionLabel"));
    static_cast<PhotographModel*>(model())->setProject({index(0)}, QString(300, QLatin1Char('W')));
    table()->selectAll();
    EXPECT_LE(window_.minimumSizeHint().width(), 800);
    EXPECT_LT(label->width(), label->sizeHint().width());
    const QImage cut = label->grab().toImage();
    label->setText(
        label->fontMetrics().elidedText(label->text(), Qt::ElideRight, label->contentsRect().width()));
    EXPECT_EQ(label->grab().toImage(), cut);
}

TEST_F(Window, HelpTellsOfTheKeysAndTheVersion) {
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

TEST_F(Window, AssistiveToolsFindTheTableItsCellsAndTheControls) {
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
