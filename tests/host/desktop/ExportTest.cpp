#include "tests/host/desktop/ExportWindow.h"
#include "tests/support/ThreadShortage.h"

#include <QtCore/QRegularExpression>
#include <QtWidgets/QScrollArea>
#include <QtWidgets/QTreeWidget>
#include <QtWidgets/QVBoxLayout>

using host::ImageOutcome;
using test_support::waitUntil;

namespace {

/// As long as it lives, the plug-in's service is at another host.
class ServiceInPlace {
public:
    ServiceInPlace(const FakePlugInScript& files, const QByteArray& webHost) {
        qputenv("QUILLMARK_SERVICE_CONFIG",
                files.file(QStringLiteral("service.ini"),
                           "[service]\nwebHost=" + webHost + "\nftpHost=ftp.quillmark.example\n"));
    }
    ~ServiceInPlace() { qunsetenv("QUILLMARK_SERVICE_CONFIG"); }
    ServiceInPlace(const ServiceInPlace&) = delete;
    ServiceInPlace& operator=(const ServiceInPlace&) = delete;
};

} // namespace

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

TEST_F(ExportWindow, ACriticalAlertIsTheReasonAndEndsTheExport) {
    plugIn_.tell("alerts");
    selectPictures(1);
    exportToTheSummary();
    EXPECT_EQ(messages_.texts, QStringList(QStringLiteral("It is so.|Line\nby line.")));
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_TRUE(text("details").startsWith(QStringLiteral("It is so. Line\nby line.")));
}

TEST_F(ExportWindow, AnUnconfirmedExportIsNeverCalledFinishedAndAskedAboutAgain) {
    plugIn_.tell("unanswered");
    selectPictures(2);
    exportToTheSummary();
    const QString all = text("headline") + text("details");
    EXPECT_FALSE(all.contains(QStringLiteral("finished"))) << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("did not confirm")));
    EXPECT_TRUE(all.contains(QStringLiteral("all 2 photographs")));

    plugIn_.tell("");
    press(summary(), "askAgainButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    // Nothing was sent a second time.
    EXPECT_EQ(logged(QStringLiteral("shouldExport")).toStdString(), "shouldExport 0;shouldExport 1");
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 2);
}

TEST_F(ExportWindow, TheConfirmationIsAskedForWithTheRemainingOnesEvenWhereNoneCanBePrepared) {
    plugIn_.tell("leaves-out=1 unanswered");
    selectPictures(2);
    exportToTheSummary();
    ASSERT_TRUE(text("details").contains(QStringLiteral("Exporting the remaining photographs asks it to")));
    plugIn_.tell("leaves-out=0");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "Some photographs were not exported.");
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 2);
    EXPECT_FALSE(foundJournals().front().record->lacksConfirmation());
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
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
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

TEST_F(ExportWindow, AnEarlierExportIsOfferedAfterARestart) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return visible<host::desktop::NoticeBar>() != nullptr; }));
    auto* const notice = visible<host::desktop::NoticeBar>();
    EXPECT_TRUE(notice->findChild<QLabel*>(QStringLiteral("noticeText"))
                    ->text()
                    .contains(QStringLiteral("Smith Wedding")));
    press(notice, "noticeButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "This export is not complete.");
    plugIn_.tell("");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 1.jpg");
    EXPECT_TRUE(foundJournals().front().record->isSettled());
}

TEST_F(ExportWindow, AnEarlierExportToAnotherServiceIsNotOfferedAndNotGoneOnWith) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    const ServiceInPlace other(plugIn_, "elsewhere.quillmark.example");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().contains(QStringLiteral("belongs to another service")))
        << messages_.texts.first().toStdString();
    EXPECT_FALSE(exportDialog());
    EXPECT_EQ(unfinishedExports(), QStringList(QStringLiteral("None")));
    openWindow();
    test_support::runLoopFor(std::chrono::milliseconds(200));
    EXPECT_FALSE(visible<host::desktop::NoticeBar>());
    EXPECT_EQ(foundJournals().front().record->remaining().size(), 1U);

    // What goes there now is an export of its own.
    plugIn_.tell("");
    selectPictures(2);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(foundJournals().size(), 2U);
}

TEST_F(ExportWindow, TheNoticeGoesOnceNothingIsLeft) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return !noticeText().isEmpty(); }));
    plugIn_.tell("");
    selectPictures(2);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_TRUE(waitUntil([this] { return noticeText().isEmpty(); })) << noticeText().toStdString();
}

TEST_F(ExportWindow, AnExportThatSomebodyElseHasFinishedIsSaidToBe) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return !noticeText().isEmpty(); }));
    ASSERT_TRUE(QFile::remove(foundJournals().front().path));
    press(visible<host::desktop::NoticeBar>(), "noticeButton");
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("Nothing is left of this export.")))
        << messages_.texts.first().toStdString();
}

TEST_F(ExportWindow, JournalsThatCannotBeReadAreToldOf) {
    ASSERT_TRUE(QDir().mkpath(journals()));
    const auto writeJournal = [this](const char* name, const QByteArray& contents) {
        QFile file(journals() + QLatin1Char('/') + QLatin1String(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    };
    writeJournal("a.journal", "nonsense\n");
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return !noticeText().isEmpty(); }));
    EXPECT_EQ(noticeText().toStdString(),
              "The journal of an earlier export cannot be read. What it has left is not known.");
    ASSERT_EQ(unfinishedExports().size(), 1);
    writeJournal("b.journal", R"({"journal":99,"begun":"2040-01-01T00:00:00Z"})"
                              "\n");
    EXPECT_EQ(unfinishedExports(), QStringList(QStringLiteral("2 Unreadable Journals…")));
    unfinishedMenu()->actions().first()->trigger();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    const QString told = messages_.texts.first();
    EXPECT_TRUE(told.contains(journals() + QStringLiteral("/a.journal: it is damaged at or after line 1")))
        << told.toStdString();
    EXPECT_TRUE(told.contains(QStringLiteral("b.journal: it was kept by another version of the program")))
        << told.toStdString();
}

TEST_F(ExportWindow, ALongEventsNameWidensNoWindow) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    logIn();
    control<QComboBox>(hostapi::panel::kEventChooser)->setItemText(0, QString(180, QLatin1Char('W')));
    choose(0, QStringLiteral("Ceremony"));
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_LE(summary()->width(), 900);
    summary()->reject();
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return !noticeText().isEmpty(); }));
    EXPECT_TRUE(noticeText().contains(QStringLiteral("…")));
    EXPECT_LE(window_->minimumSizeHint().width(), 800);
}

TEST_F(ExportWindow, EarlierExportsAreInTheMenu) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    // It belongs to the open summary.
    EXPECT_EQ(unfinishedExports(), QStringList(QStringLiteral("None")));
    summary()->reject();
    ASSERT_EQ(unfinishedExports().size(), 1);
    // To the minute.
    EXPECT_FALSE(
        unfinishedExports().first().contains(QRegularExpression(QStringLiteral("\\d:\\d\\d:\\d\\d"))))
        << unfinishedExports().first().toStdString();
    EXPECT_TRUE(unfinishedExports().first().endsWith(QStringLiteral(": 1 of 2 photographs remains")))
        << unfinishedExports().first().toStdString();
    unfinishedMenu()->actions().first()->trigger();
    EXPECT_TRUE(waitForSummary());
}

TEST_F(ExportWindow, TheRestMayGoSomewhereElseAsAnExportOfItsOwn) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    plugIn_.tell("");
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    ASSERT_TRUE(waitUntil([this] {
        return control<QComboBox>(hostapi::panel::kCategoryChooser)->currentText() ==
               QStringLiteral("Ceremony");
    }));
    choose(1, QStringLiteral("Elsewhere"));
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    // What is known of the first export stays true.
    ASSERT_EQ(foundJournals().size(), 2U);
    EXPECT_EQ(foundJournals().back().record->count(ImageOutcome::Uploaded), 1U);
}

TEST_F(ExportWindow, AnExportCanBeForgotten) {
    plugIn_.tell("upload-breaks=0");
    selectPictures(1);
    exportToTheSummary();
    messages_.wish = QMessageBox::Yes;
    press(summary(), "forgetButton");
    EXPECT_TRUE(waitUntil([this] { return foundJournals().empty(); }));
    EXPECT_TRUE(QFile::exists(folder_.filePath(QStringLiteral("0.png"))));
}

TEST_F(ExportWindow, WhoPressesEnterForgetsNothing) {
    plugIn_.tell("upload-breaks=0");
    selectPictures(1);
    exportToTheSummary();
    messages_.wish = QMessageBox::NoButton;
    QString question;
    QTimer::singleShot(0, [&question] {
        auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        question = box->text();
        QTest::keyClick(box, Qt::Key_Return);
    });
    press(summary(), "forgetButton");
    EXPECT_TRUE(question.contains(QStringLiteral("deleted for good"))) << question.toStdString();
    EXPECT_TRUE(summary());
    EXPECT_EQ(foundJournals().size(), 1U);
}

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

TEST_F(ExportWindow, APlugInThatCannotBeMadeIsSaid) {
    plugIn_.tell("unmakable");
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().contains(QStringLiteral("it does not want to be made")));
    plugIn_.tell("");
    action("Export to Quillmark")->trigger();
    EXPECT_TRUE(waitForDialog());
}

TEST_F(ExportWindow, APlugInThatWantsWhatTheApplicationHasNotIsSaid) {
    selectPictures(1);
    for (const char* const wish : {"masters-only", "wants-names", "wants-folder"}) {
        messages_.texts.clear();
        plugIn_.tell(wish);
        action("Export to Quillmark")->trigger();
        ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); })) << wish;
        EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export plug-in cannot be used.")))
            << wish;
        EXPECT_FALSE(exportDialog()) << wish;
        EXPECT_EQ(plugIn_.log().mid(plugIn_.log().size() - 4),
                  (QStringList{QStringLiteral("defaultDirectory"), QStringLiteral("shouldCancelExport"),
                               QStringLiteral("willBeDeactivated"), QStringLiteral("destroyed")}))
            << wish;
    }
}

TEST_F(ExportWindow, WithoutAJournalNothingIsExported) {
    QFile inTheWay(journals());
    ASSERT_TRUE(inTheWay.open(QIODevice::WriteOnly));
    selectPictures(1);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export was not begun.")));
    EXPECT_TRUE(logged(QStringLiteral("shouldExport")).isEmpty());
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportWindow, WithoutAThreadForTheImagesTheExportFailsAndCanBeGoneOnWith) {
    selectPictures(2);
    // The light table has done its work.
    ASSERT_TRUE(waitUntil([this] { return isLoaded(0) && isLoaded(1); }));
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    logIn();
    choose(0, QStringLiteral("Ceremony"));
    {
        const test_support::ThreadShortage shortage;
        press(exportDialog(), "exportButton");
        ASSERT_TRUE(waitForSummary());
    }
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_TRUE(text("details").startsWith(QStringLiteral("The system has no thread left")))
        << text("details").toStdString();
    press(summary(), "exportRemainingButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
}

TEST_F(ExportWindow, TheConfirmationIsAskedForOfTheSameEventAlone) {
    plugIn_.tell("unanswered");
    selectPictures(1);
    exportToTheSummary();
    plugIn_.tell("");
    press(summary(), "askAgainButton");
    ASSERT_TRUE(waitForDialog());
    logIn();
    ASSERT_TRUE(waitUntil([this] {
        return control<QComboBox>(hostapi::panel::kCategoryChooser)->currentText() ==
               QStringLiteral("Ceremony");
    }));
    choose(1, QStringLiteral("Elsewhere"));
    press(exportDialog(), "exportButton");
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export was not begun.")))
        << messages_.texts.first().toStdString();
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 1);
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_TRUE(
        waitUntil([this] { return unfinishedExports().first().contains(QStringLiteral("not confirmed")); }));
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
