#include "host/desktop/PhotographFiles.h"
#include "tests/host/desktop/LightTableWindow.h"

#include <QtCore/QMimeData>
#include <QtGui/QDropEvent>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QLineEdit>

#include <sys/resource.h>

using namespace host::desktop;
using test_support::waitUntil;

namespace {

/// What the user does in the next file dialog: types `names` and presses Enter, or Escape where there are
/// none.
void answerFileDialog(const QString& names) {
    QTimer::singleShot(0, [names] {
        auto* const dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        ASSERT_TRUE(dialog);
        auto* const field = dialog->findChild<QLineEdit*>();
        field->setText(names);
        QTest::keyClick(field, names.isEmpty() ? Qt::Key_Escape : Qt::Key_Return);
    });
}

} // namespace

TEST_F(LightTableWindow, AFolderThatIsChosenTakesTheTable) {
    fill(2);
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    folder_.picture(QStringLiteral("Jones/a.png"));
    answerFileDialog({});
    action("Open Folder")->trigger();
    EXPECT_EQ(model()->rowCount(), 2);
    answerFileDialog(folder_.filePath(QStringLiteral("Jones")));
    action("Open Folder")->trigger();
    ASSERT_TRUE(waitUntil([this] { return model()->rowCount() == 1; }));
    EXPECT_EQ(index(0).data().toString(), QStringLiteral("a.png"));
}

TEST_F(LightTableWindow, FilesThatAreChosenAreAddedToTheTable) {
    fill(2);
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    const QString first = QFile::decodeName(folder_.picture(QStringLiteral("Jones/a.png")));
    const QString second = QFile::decodeName(folder_.picture(QStringLiteral("Jones/b.png")));
    answerFileDialog({});
    action("Add Photographs")->trigger();
    EXPECT_EQ(model()->rowCount(), 2);
    answerFileDialog(QStringLiteral("\"%1\" \"%2\"").arg(first, second));
    action("Add Photographs")->trigger();
    EXPECT_TRUE(waitUntil([this] { return model()->rowCount() == 4; }));
}

TEST_F(LightTableWindow, DroppedFilesAndFoldersAreAddedAndStayWhereTheyWere) {
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

TEST_F(LightTableWindow, ClearingTheTableDeletesNoFile) {
    fill(2);
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(model()->rowCount(), 0);
    EXPECT_EQ(QDir(folder_.path()).entryList(QDir::Files).size(), 2);
}

TEST_F(LightTableWindow, WhatIsFoundAfterTheTableWasClearedStaysAway) {
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

TEST_F(LightTableWindow, SaysWhatWasPassedOverAndStillHowManyAreSelected) {
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

TEST_F(LightTableWindow, SaysWhichFolderCannotBeReadAndWhy) {
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

TEST_F(LightTableWindow, AnEmptyFolderIsCalledSo) {
    window_.open({folder_.bytes()});
    EXPECT_TRUE(waitUntil([this] { return table()->emptyText().contains(QStringLiteral("“Smith”")); }));
    EXPECT_EQ(window_.findChild<QLabel*>(QStringLiteral("selectionLabel"))->text().toStdString(),
              "No photographs");
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(table()->emptyText().toStdString(), "Open a folder, or drop photographs here.");
}

TEST_F(LightTableWindow, AnEmptyFolderThatIsAddedToOthersIsCalledSo) {
    fill(1);
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    window_.open({folder_.bytes() + "/Jones"});
    EXPECT_TRUE(waitUntil(
        [this] { return noticeText() == QStringLiteral("There are no photographs in “Jones” itself."); }));
}

TEST_F(LightTableWindow, ItsTitleNamesTheFolder) {
    EXPECT_EQ(window_.windowTitle().toStdString(), "Quillmark");
    fill(2);
    EXPECT_EQ(window_.windowTitle().toStdString(), "Smith – Quillmark");
    QDir(folder_.path()).mkdir(QStringLiteral("Jones"));
    open({folder_.picture(QStringLiteral("Jones/a.png"))}, 3);
    EXPECT_EQ(window_.windowTitle().toStdString(), "Several folders – Quillmark");
    action("Clear the Light Table")->trigger();
    EXPECT_EQ(window_.windowTitle().toStdString(), "Quillmark");
}
