// What happens while the application works with the journals beside the main thread. What that work has
// brought is taken up in the event loop: until a test runs it, the work is under way.

#include "host/core/Service.h"
#include "tests/host/JournalFixture.h"
#include "tests/host/desktop/ExportWindow.h"
#include "tests/support/ThreadShortage.h"

using test_support::waitUntil;

namespace {

constexpr std::chrono::milliseconds kLongEnough{300};
/// So many take longer than the export needs to end.
constexpr int kManyJournals = 30;
/// Reading so many takes longer than the plug-in needs to cancel.
constexpr int kManyImages = 20'000;

/// Acts once the widget is shown: after what shows it, and before anything that is handed over later.
class OnceShown : public QObject {
public:
    OnceShown(QWidget& widget, std::function<void()> act)
        : act_(std::move(act)) {
        widget.installEventFilter(this);
    }
    bool hasActed() const { return hasActed_; }

private:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Show)
            QMetaObject::invokeMethod(
                this,
                [this] {
                    hasActed_ = true;
                    act_();
                },
                Qt::QueuedConnection);
        return false;
    }
    const std::function<void()> act_;
    bool hasActed_ = false;
};

class JournalWork : public ExportWindow {
protected:
    /// Begins an export, and acts while its names are looked up.
    void beginAnd(const std::function<void()>& act) {
        const OnceShown meanwhile(*status(), act);
        beginExport();
        ASSERT_TRUE(waitUntil([&] { return meanwhile.hasActed(); }));
    }
    void cancel() { press(status(), "cancelExportButton"); }
    host::desktop::ExportStatus* status() const { return window_->findChild<host::desktop::ExportStatus*>(); }
    bool isAsked(const char* call) const { return plugIn_.log().contains(QLatin1String(call)); }

    /// Of an earlier export to the event that is chosen in these tests.
    std::unique_ptr<host::ExportJournal> journal(int images = 1) {
        QString error;
        const auto configuration = host::serviceConfiguration(FakePlugInScript::bundlePath(), error);
        host::ExportChoices choices = host::someChoices();
        choices.category = QStringLiteral("Party");
        auto made = host::ExportJournal::create(journals(), host::serviceIdentity(*configuration), choices,
                                                host::someImages(images), {}, error);
        EXPECT_TRUE(made) << error.toStdString();
        const QString folder = QDir::tempPath() + QStringLiteral("/fake/");
        QDir().mkpath(folder);
        made->beginAttempt(choices, {0}, folder);
        made->imagePrepared(0, folder + QStringLiteral("0.jpg"));
        return made;
    }
};

} // namespace

// --- Before the dialog ---

TEST_F(JournalWork, ReconcilesWhatADeadProcessHasLeftBeforeThePlugInEmptiesItsFolder) {
    journal().reset(); // Its file is gone from there: the server has confirmed it.
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    EXPECT_FALSE(isAsked("settingsView"));
    ASSERT_TRUE(waitForDialog());
    EXPECT_EQ(foundJournals().front().record->count(host::ImageOutcome::Uploaded), 1U);
}

TEST_F(JournalWork, AKeyThatIsHitTwiceMeansOneExport) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    exportDialog()->reject();
    test_support::runLoopFor(kLongEnough);
    EXPECT_FALSE(exportDialog());
}

TEST_F(JournalWork, NoDialogOpensOverAWindowThatWasClosedMeanwhile) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    window_->close();
    EXPECT_FALSE(window_->isVisible());
    test_support::runLoopFor(kLongEnough);
    EXPECT_FALSE(exportDialog());
    EXPECT_FALSE(isAsked("settingsView"));
}

TEST_F(JournalWork, AWindowMayGoBeforeTheDialogOpens) {
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    window_.reset();
    test_support::runLoopFor(kLongEnough);
    EXPECT_FALSE(isAsked("settingsView"));
}

TEST_F(JournalWork, AWindowMayGoBeforeTheSummaryOfAnEarlierExportOpens) {
    journal()->attemptEnded({});
    ASSERT_EQ(unfinishedExports().size(), 1);
    unfinishedMenu()->actions().first()->trigger();
    window_.reset();
    // Nobody holds it for a window that is gone.
    EXPECT_TRUE(waitUntil([this] { return !foundJournals().front().isHeld; }));
}

TEST_F(JournalWork, AnExportIsBegunWhereTheSystemHasNoThreadForTheJournals) {
    selectPictures(1);
    ASSERT_TRUE(waitUntil([this] { return isLoaded(0); }));
    {
        const test_support::ThreadShortage shortage;
        action("Export to Quillmark")->trigger();
        ASSERT_TRUE(waitForDialog());
    }
    logIn();
    choose(0, QStringLiteral("Ceremony"));
    press(exportDialog(), "exportButton");
    EXPECT_TRUE(waitForSummary());
}

// --- While the names are looked up ---

TEST_F(JournalWork, AnExportMayBeCancelledBeforeItsNamesAreKnown) {
    journal(kManyImages)->attemptEnded({});
    selectPictures(2);
    beginAnd([this] { cancel(); });
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export was cancelled.");
    EXPECT_FALSE(isAsked("willBeginExportToPath its own"));
    const host::ExportRecord record = *foundJournals().front().record;
    EXPECT_TRUE(record.attemptEnded);
    ASSERT_EQ(record.remaining().size(), 2U);
    EXPECT_EQ(record.images.front().reason.toStdString(), "The export was cancelled before its turn came.");
    exportAgain();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(logged(QStringLiteral("upload")).toStdString(), "upload 0.jpg;upload 1.jpg");
}

TEST_F(JournalWork, APlugInThatIgnoresSuchACancelGetsNoImage) {
    plugIn_.tell("ignores-cancel");
    selectPictures(1);
    beginAnd([this] { cancel(); });
    ASSERT_TRUE(waitForSummary());
    EXPECT_EQ(text("headline").toStdString(), "The export was cancelled.");
    EXPECT_FALSE(isAsked("willBeginExportToPath its own"));
    EXPECT_TRUE(foundJournals().front().record->attemptEnded);
}

TEST_F(JournalWork, WhyNoJournalCanBeKeptIsSaidOfACancelledExportToo) {
    QFile inTheWay(journals());
    ASSERT_TRUE(inTheWay.open(QIODevice::WriteOnly));
    selectPictures(1);
    beginAnd([this] { cancel(); });
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().contains(QStringLiteral("cannot be kept in “") + journals()))
        << messages_.texts.first().toStdString();
}

TEST_F(JournalWork, ASecondExportWaitsForOneWhoseNamesAreLookedUp) {
    selectPictures(1);
    beginAnd([this] { action("Export to Quillmark")->trigger(); });
    EXPECT_TRUE(status()->findChild<QLabel*>(QStringLiteral("waitingLabel"))->isVisible());
    ASSERT_TRUE(waitForSummary());
    EXPECT_FALSE(exportDialog());
    summary()->reject();
    EXPECT_TRUE(waitForDialog());
}

TEST_F(JournalWork, QuittingMeanwhileAsksAndLeavesAJournalToGoOnWith) {
    plugIn_.tell("slow-images");
    selectPictures(2);
    messages_.wish = QMessageBox::Yes;
    beginAnd([this] { window_->close(); });
    EXPECT_EQ(messages_.texts.size(), 1);
    EXPECT_TRUE(waitUntil([this] { return !window_->isVisible(); }));
    window_.reset();
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_FALSE(foundJournals().front().isHeld);
    EXPECT_TRUE(foundJournals().front().record->attemptEnded);
    EXPECT_EQ(foundJournals().front().record->remaining().size(), 2U);
}

TEST_F(JournalWork, AWindowMayGoMeanwhileAndTheExportBeGoneOnWith) {
    selectPictures(2);
    beginAnd([this] { window_.reset(); });
    ASSERT_TRUE(waitUntil([this] {
        const auto found = foundJournals();
        return !found.empty() && !found.front().isHeld;
    }));
    EXPECT_FALSE(isAsked("willBeginExportToPath its own"));
    openWindow();
    ASSERT_TRUE(waitUntil([this] { return !noticeText().isEmpty(); }));
    EXPECT_TRUE(noticeText().endsWith(QStringLiteral(": 2 of 2 photographs remain.")))
        << noticeText().toStdString();
    press(visible<host::desktop::NoticeBar>(), "noticeButton");
    ASSERT_TRUE(waitForSummary());
    exportAgain();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
}

// --- After the confirmation ---

TEST_F(JournalWork, TheSummaryComesOnceTheEarlierExportsAreConfirmedToo) {
    for (int i = 0; i < kManyJournals; ++i) {
        const auto earlier = journal();
        earlier->imageUploaded(earlier->record().images.front().preparedPath);
        earlier->attemptEnded({});
    }
    selectPictures(1);
    exportToTheSummary();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    EXPECT_EQ(foundJournals().size(), 1U) << "they are settled";
}

// --- The menu ---

TEST_F(JournalWork, TheMenuSaysThatItLooksAndKeepsWhatItKnowsMeanwhile) {
    journal()->attemptEnded({});
    openWindow();
    EXPECT_EQ(unfinishedMenuTexts(), QStringList(QStringLiteral("Looking…")));
    EXPECT_FALSE(unfinishedMenu()->actions().first()->isEnabled());
    const QStringList known = unfinishedExports();
    ASSERT_EQ(known.size(), 1);
    Q_EMIT unfinishedMenu()->aboutToShow();
    EXPECT_EQ(unfinishedMenuTexts(), known + QStringList(QStringLiteral("Looking…")));
    // Another process has finished it.
    ASSERT_TRUE(QFile::remove(foundJournals().front().path));
    EXPECT_EQ(unfinishedExports(), QStringList(QStringLiteral("None")));
}

TEST_F(JournalWork, AnExportThatIsAskedForWhileASummaryOpensWaitsForIt) {
    plugIn_.tell("upload-breaks=1");
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    ASSERT_EQ(unfinishedExports().size(), 1);
    unfinishedMenu()->actions().first()->trigger();
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForSummary());
    EXPECT_FALSE(exportDialog());
    summary()->reject();
    EXPECT_TRUE(waitForDialog());
}
