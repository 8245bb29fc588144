#include "tests/host/desktop/ExportWindow.h"

#include <QtWidgets/QTreeWidget>

using test_support::waitUntil;

TEST_F(ExportWindow, MakesTheCallsInTheirOrder) {
    selectPictures(2);
    exportToTheSummary();
    ASSERT_TRUE(waitUntil([this] { return plugIn_.log().contains(QStringLiteral("destroyed")); }));
    QStringList log = plugIn_.log();
    log.removeFirst(); // Where its temporary folder is.
    const QString size = QString::number(QFileInfo(folder_.filePath(QStringLiteral("0.png"))).size());
    const QString exporting =
        QStringLiteral("login ann/secret/0\nshouldBeginExport\nevent Smith Wedding\ncategory Ceremony/0\n"
                       "pricing \nresize 0//\nquality 1200\ncolorspace 0\n"
                       "willBeginExportToPath its own\n"
                       "shouldExport 0\nwillExport 0\nshouldWrite 0 0.png %1 Smith\ndidWrite 0 0.png\n"
                       "shouldExport 1\nwillExport 1\nshouldWrite 1 1.png %1 Smith\ndidWrite 1 1.png\n"
                       "didFinishExport\nupload 0.jpg\nupload 1.jpg\nwillBeDeactivated\ndestroyed")
            .arg(size);
    EXPECT_EQ(
        log.join(QLatin1Char('\n')).toStdString(),
        (FakePlugInScript::callsToOpen() + QStringList(exporting)).join(QLatin1Char('\n')).toStdString());
}

TEST_F(ExportWindow, AFinishedExportIsSummedUpAndLeavesNothingToDo) {
    selectPictures(3);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_TRUE(text("details").contains(QStringLiteral("all 3 photographs")))
        << text("details").toStdString();
    EXPECT_EQ(text("destination").toStdString(), "Event “Smith Wedding”");
    EXPECT_GE(summary()->width(), 400);
    EXPECT_FALSE(summary()->findChild<QTreeWidget*>());
    EXPECT_FALSE(summary()->findChild<QAbstractButton*>(QStringLiteral("exportRemainingButton")));
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_TRUE(foundJournals().front().record->isSettled());
    EXPECT_EQ(unfinishedExports(), QStringList(QStringLiteral("None")));
}

TEST_F(ExportWindow, EqualStemsAndRenamedProjectsReachThePlugIn) {
    folder_.picture(QStringLiteral("a.png"));
    folder_.picture(QStringLiteral("a.jpg"));
    window_->open({folder_.bytes()});
    ASSERT_TRUE(waitUntil([this] { return table()->model()->rowCount() == 2; }));
    table()->selectAll();
    static_cast<host::desktop::PhotographModel*>(table()->model())
        ->setProject({table()->model()->index(1, 0)}, QStringLiteral("Jones"));
    exportToTheSummary();
    EXPECT_TRUE(logged(QStringLiteral("shouldWrite 0 ")).endsWith(QStringLiteral(" Smith")));
    EXPECT_TRUE(logged(QStringLiteral("shouldWrite 1 a-2.png ")).endsWith(QStringLiteral(" Jones")));
}

TEST_F(ExportWindow, APhotographTakesTheNameThatItHasAndNeverThatOfAnotherFoldersOne) {
    selectPictures(1);
    exportToTheSummary();
    PhotographFolder other;
    other.picture(QStringLiteral("0.png"));
    for (const QByteArray& folder : {other.bytes(), folder_.bytes(), other.bytes()}) {
        openWindow();
        window_->open({folder});
        ASSERT_TRUE(waitUntil([this] { return table()->model()->rowCount() == 1; }));
        table()->selectAll();
        exportToTheSummary();
    }
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(),
              "upload 0.jpg;upload 0-2.jpg;upload 0.jpg;upload 0-2.jpg");
}

TEST_F(ExportWindow, APhotographOfAnotherCardUnderTheSamePathTakesNoPlace) {
    selectPictures(1);
    exportToTheSummary();
    summary()->reject();
    folder_.picture(QStringLiteral("0.png"), {90, 60});
    QFile other(folder_.filePath(QStringLiteral("0.png")));
    ASSERT_TRUE(other.open(QIODevice::ReadWrite));
    ASSERT_TRUE(
        other.setFileTime(QDateTime::currentDateTime().addSecs(-3600), QFileDevice::FileModificationTime));
    exportToTheSummary();
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 0-2.jpg");
}

TEST_F(ExportWindow, WhatRemainsIsNotSentFromAnotherCardUnderTheSamePath) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(3);
    exportToTheSummary();
    folder_.picture(QStringLiteral("2.png"), {90, 60});
    QFile other(folder_.filePath(QStringLiteral("2.png")));
    ASSERT_TRUE(other.open(QIODevice::ReadWrite));
    ASSERT_TRUE(
        other.setFileTime(QDateTime::currentDateTime().addSecs(-3600), QFileDevice::FileModificationTime));
    plugIn_.tell("");
    exportAgain();
    EXPECT_EQ(text("headline").toStdString(), "Some photographs were not exported.");
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 1.jpg");
    auto* const list = summary()->findChild<QTreeWidget*>();
    ASSERT_EQ(list->topLevelItemCount(), 1);
    EXPECT_EQ(list->topLevelItem(0)->text(0), QStringLiteral("2.png"));
    EXPECT_EQ(list->topLevelItem(0)->text(1).toStdString(), "another photograph is found under its path now");
}

TEST_F(ExportWindow, OnlyTheSelectionIsExported) {
    selectPictures(3);
    table()->clearSelection();
    EXPECT_FALSE(action("Export to Quillmark")->isEnabled());
    table()->selectionModel()->select(table()->model()->index(1, 0), QItemSelectionModel::Select);
    exportToTheSummary();
    EXPECT_EQ(logged(QStringLiteral("shouldExport")).toStdString(), "shouldExport 0");
    EXPECT_TRUE(logged(QStringLiteral("shouldWrite")).contains(QStringLiteral(" 1.png ")));
}

TEST_F(ExportWindow, WhatWasLeftOutIsListedWithItsReasonAndCanBeTriedAgain) {
    plugIn_.tell("leaves-out=1");
    selectPictures(3);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "Some photographs were not exported.");
    auto* const list = summary()->findChild<QTreeWidget*>();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->topLevelItemCount(), 1);
    EXPECT_EQ(list->topLevelItem(0)->text(0), QStringLiteral("1.png"));
    EXPECT_EQ(list->topLevelItem(0)->text(1).toStdString(), "It cannot be read as a picture.");

    plugIn_.tell("");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    EXPECT_EQ(control<QLabel>(QLatin1String("heading"))->text().toStdString(),
              "What remains of the export to “Smith Wedding” will be exported: 1 photograph.");
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(logged(QStringLiteral("shouldWrite [01] 1.png")).count(QLatin1Char(';')), 1);
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 2.jpg;upload 1.jpg");
}

TEST_F(ExportWindow, ABrokenOffUploadIsToldAndTheRestGoesWithTheSameChoicesAndNames) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(3);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    logIn();
    choose(0, QStringLiteral("Typed"));
    control<QSlider>(hostapi::panel::kQualitySlider)->setValue(700);
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_TRUE(text("details").contains(QStringLiteral("1 of 3 photographs")));
    EXPECT_EQ(summary()->findChild<QTreeWidget*>()->topLevelItemCount(), 2);

    plugIn_.tell("");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    EXPECT_EQ(control<QLineEdit>(hostapi::panel::kUsernameField)->text(), QStringLiteral("ann"));
    logIn();
    ASSERT_TRUE(waitUntil([this] {
        return control<QComboBox>(hostapi::panel::kCategoryChooser)->currentText() == QStringLiteral("Typed");
    }));
    EXPECT_EQ(control<QComboBox>(hostapi::panel::kEventChooser)->currentText(),
              QStringLiteral("Smith Wedding"));
    EXPECT_EQ(control<QSlider>(hostapi::panel::kQualitySlider)->value(), 700);
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 1.jpg;upload 2.jpg");
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_TRUE(foundJournals().front().record->isSettled());
}

TEST_F(ExportWindow, WhatRemainsKeepsTheNameThatItHadAmongEqualOnes) {
    plugIn_.tell("upload-breaks=1");
    folder_.picture(QStringLiteral("a.png"));
    folder_.picture(QStringLiteral("a.jpg"));
    window_->open({folder_.bytes()});
    ASSERT_TRUE(waitUntil([this] { return table()->model()->rowCount() == 2; }));
    table()->selectAll();
    exportToTheSummary();
    ASSERT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload a.jpg");
    plugIn_.tell("");
    exportAgain();
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload a.jpg;upload a-2.jpg");
}

TEST_F(ExportWindow, ACriticalAlertIsTheReasonAndEndsTheExport) {
    plugIn_.tell("alerts");
    selectPictures(1);
    exportToTheSummary();
    EXPECT_EQ(messages_.texts, QStringList(QStringLiteral("It is so.|Line\nby line.")));
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_TRUE(text("details").startsWith(QStringLiteral("It is so. Line\nby line.")));
}

TEST_F(ExportWindow, APhotographThatCannotBeWrittenKeepsNoOtherBack) {
    plugIn_.tell("unwritable=0");
    selectPictures(3);
    exportToTheSummary();
    EXPECT_TRUE(text("details").startsWith(QStringLiteral("There was an error reading 0.jpg. ")))
        << text("details").toStdString();
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("shouldCancelExport")), 1)
        << "the plug-in has left its windows open";
    plugIn_.tell("unwritable=2");
    exportAgain();
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 1.jpg;upload 2.jpg");
    auto* const list = summary()->findChild<QTreeWidget*>();
    ASSERT_EQ(list->topLevelItemCount(), 1);
    EXPECT_EQ(list->topLevelItem(0)->text(1).toStdString(),
              "Its file could not be written into the temporary folder.");
}

TEST_F(ExportWindow, EveryCriticalAlertIsAReasonInItsOrder) {
    plugIn_.tell("alerts-twice");
    selectPictures(1);
    exportToTheSummary();
    EXPECT_TRUE(
        text("details").startsWith(QStringLiteral("It was so. Line\nby line. It is so. Line\nby line.")))
        << text("details").toStdString();
}

TEST_F(ExportWindow, NothingPreparedIsAFailureThatAsksTheServiceForNothing) {
    plugIn_.tell("leaves-out=0");
    selectPictures(1);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportWindow, TheFirstWordOfThePlugInCounts) {
    plugIn_.tell("cancels-then-finishes");
    selectPictures(1);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export was cancelled.");
    EXPECT_FALSE(foundJournals().front().record->processingConfirmed);
}
