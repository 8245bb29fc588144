#include "platform/UserDefaults.h"
#include "tests/host/desktop/ExportWindow.h"

#include <QtCore/QRegularExpression>

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
    exportAgain();
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

TEST_F(ExportWindow, AnotherAccountsRememberedLoginStaysOutOfIt) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    // From here on the user's own.
    const QString rememberedName = QStringLiteral("quillmarkUsername");
    platform::UserDefaults::setValue(rememberedName, QStringLiteral("ben"));
    defaults_.reset();
    openWindow();
    plugIn_.tell("remembered");
    unfinishedExports();
    unfinishedMenu()->actions().first()->trigger();
    ASSERT_TRUE(waitForSummary());
    exportAgain();
    EXPECT_EQ(logged(QStringLiteral("login")).toStdString(), "login ann/secret/0;login ann/secret/0");
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(platform::UserDefaults::value(rememberedName).toString(), QStringLiteral("ben"));
    platform::UserDefaults::remove(rememberedName);
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
    exportElsewhere();
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
