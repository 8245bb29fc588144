#include "host/cli/ExportSession.h"

#include "platform/UserDefaults.h"
#include "tests/host/FakePlugInScript.h"
#include "tests/support/ThreadShortage.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

using namespace host;
using namespace host::cli;
using namespace std::chrono_literals;

namespace {

constexpr QLatin1String kRememberedName{"quillmarkUsername"};

/// Longer than anything that is expected to happen, shorter than a test may take.
constexpr auto kNeverReached = 60s;

class ExportSessionRun : public testing::Test {
protected:
    ExportSessionRun() {
        options_.user = QStringLiteral("ann");
        options_.event = QStringLiteral("77");
        options_.category = QStringLiteral("Ceremony");
        options_.images = {plugIn_.file(QStringLiteral("a.tif")), plugIn_.file(QStringLiteral("a.png"))};
    }
    ~ExportSessionRun() override { platform::UserDefaults::remove(kRememberedName); }

    void start(std::chrono::milliseconds quietLimit = kNeverReached) {
        session_ = ExportSession::make(options_,
                                       {FakePlugInScript::bundlePath(), quietLimit,
                                        [this](const QString& account) {
                                            askedFor_ = account;
                                            // Characters of its own, as of a password that was read.
                                            return noPassword_.value_or(QString::fromLatin1("secret"));
                                        }},
                                       reporter_);
        QObject::connect(session_.get(), &ExportSession::ended,
                         [this](Outcome outcome) { outcome_ = outcome; });
        session_->start();
    }

    std::optional<Outcome> wait() {
        test_support::waitUntil([this] { return outcome_.has_value(); });
        return outcome_;
    }

    std::optional<Outcome> run(const QByteArray& script,
                               std::chrono::milliseconds quietLimit = kNeverReached) {
        plugIn_.tell(script);
        start(quietLimit);
        return wait();
    }

    bool waitForLog(const QString& line) {
        return test_support::waitUntil([this, line] { return plugIn_.log().contains(line); });
    }

    FakePlugInScript plugIn_;
    Options options_;
    /// None, and the run finds a password.
    std::optional<Password> noPassword_;
    std::optional<QString> askedFor_;
    Reporter reporter_{true, false};
    std::shared_ptr<ExportSession> session_;
    std::optional<Outcome> outcome_;
};

} // namespace

TEST_F(ExportSessionRun, MakesTheCallsInTheirOrder) {
    EXPECT_EQ(run(""), Outcome::Finished);
    QStringList log = plugIn_.log();
    log.removeFirst();
    const QString project = plugIn_.folderName();
    const QStringList expected =
        FakePlugInScript::callsToOpen() + QStringList{QStringLiteral("login ann/secret/0"),
                                                      QStringLiteral("shouldBeginExport"),
                                                      QStringLiteral("event Smith Wedding"),
                                                      QStringLiteral("category Ceremony/0"),
                                                      QStringLiteral("pricing "),
                                                      QStringLiteral("resize 0//"),
                                                      QStringLiteral("quality 1200"),
                                                      QStringLiteral("colorspace 0"),
                                                      QStringLiteral("willBeginExportToPath its own"),
                                                      QStringLiteral("shouldExport 0"),
                                                      QStringLiteral("willExport 0"),
                                                      QStringLiteral("shouldWrite 0 a.tif 6 ") + project,
                                                      QStringLiteral("didWrite 0 a.tif"),
                                                      QStringLiteral("shouldExport 1"),
                                                      QStringLiteral("willExport 1"),
                                                      QStringLiteral("shouldWrite 1 a-2.png 6 ") + project,
                                                      QStringLiteral("didWrite 1 a-2.png"),
                                                      QStringLiteral("didFinishExport"),
                                                      QStringLiteral("upload a.jpg"),
                                                      QStringLiteral("upload a-2.jpg"),
                                                      QStringLiteral("willBeDeactivated")};
    EXPECT_EQ(log.join(QLatin1Char('\n')).toStdString(), expected.join(QLatin1Char('\n')).toStdString());
}

TEST_F(ExportSessionRun, RefusesAPlugInThatWantsWhatTheCommandHasNot) {
    for (const char* const wish : {"masters-only", "wants-names", "wants-folder"}) {
        outcome_.reset();
        EXPECT_EQ(run(wish), Outcome::Failed) << wish;
        EXPECT_EQ(plugIn_.log().mid(plugIn_.log().size() - 3),
                  (QStringList{QStringLiteral("defaultDirectory"), QStringLiteral("shouldCancelExport"),
                               QStringLiteral("willBeDeactivated")}))
            << wish;
    }
}

TEST_F(ExportSessionRun, ReadsTheRecordOnlyWhileItExports) {
    plugIn_.tell("login-hangs");
    start();
    test_support::runLoopFor(300ms); // Some looks around.
    session_->interrupt();
    EXPECT_EQ(wait(), Outcome::Cancelled);
    outcome_.reset();
    EXPECT_EQ(run(""), Outcome::Finished);
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("progress without an export")));
}

TEST_F(ExportSessionRun, MakesEveryChoiceThatTheOptionsName) {
    options_.event = QStringLiteral("Gala");
    options_.category = QStringLiteral("A new one");
    options_.autoCategories = true;
    options_.project = QStringLiteral("Shoot");
    options_.pricing = QStringLiteral("Standard");
    options_.resize = ResizeBox{QStringLiteral("2560"), QStringLiteral("1440")};
    options_.quality = 9;
    options_.colorspace = ColorSpaceChoice::ProPhotoRGB;
    options_.remember = true;
    EXPECT_EQ(run(""), Outcome::Finished);
    const QStringList log = plugIn_.log();
    for (const char* line :
         {"login ann/secret/1", "event Gala", "category A new one/1", "pricing Standard",
          "resize 1/2560/1440", "quality 900", "colorspace 2", "shouldWrite 0 a.tif 6 Shoot"})
        EXPECT_TRUE(log.contains(QLatin1String(line))) << line;
}

TEST_F(ExportSessionRun, TypesAListedCategoryAsWellAsANewOne) {
    options_.event = QStringLiteral("Smith Wedding");
    options_.category = QStringLiteral("Party");
    EXPECT_EQ(run(""), Outcome::Finished);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("category Party/0")));
}

TEST_F(ExportSessionRun, TicksRememberWhenItKeepsNothing) {
    options_.ephemeral = true;
    EXPECT_EQ(run(""), Outcome::Finished);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("login ann/secret/1")));
}

TEST_F(ExportSessionRun, UsesTheRememberedLoginWithoutAskingForAPassword) {
    platform::UserDefaults::setValue(kRememberedName, QStringLiteral("ann"));
    options_.user.reset();
    EXPECT_EQ(run("remembered"), Outcome::Finished);
    EXPECT_FALSE(askedFor_);
}

TEST_F(ExportSessionRun, AsksForThePasswordOfTheRememberedAccountThatDoesNotLogInByItself) {
    platform::UserDefaults::setValue(kRememberedName, QStringLiteral("ben"));
    options_.user.reset();
    EXPECT_EQ(run(""), Outcome::Finished);
    EXPECT_EQ(askedFor_, QStringLiteral("ben"));
}

TEST_F(ExportSessionRun, HidesTheRememberedLoginOfAnotherAccount) {
    platform::UserDefaults::setValue(kRememberedName, QStringLiteral("ben"));
    EXPECT_EQ(run("remembered"), Outcome::Finished);
    EXPECT_EQ(askedFor_, QStringLiteral("ann"));
    EXPECT_FALSE(plugIn_.log().join(QLatin1Char(' ')).contains(QStringLiteral("ben")));
}

TEST_F(ExportSessionRun, WithoutAnAccountIsWrongUsage) {
    options_.user.reset();
    EXPECT_EQ(run(""), Outcome::Usage);
}

TEST_F(ExportSessionRun, WithoutAPasswordIsWrongUsage) {
    noPassword_ = NoPassword{QStringLiteral("there is none")};
    EXPECT_EQ(run(""), Outcome::Usage);
}

TEST_F(ExportSessionRun, IsCancelledWhereTheUserGivesUpAtThePrompt) {
    noPassword_ = Interrupted{};
    EXPECT_EQ(run(""), Outcome::Cancelled);
}

TEST_F(ExportSessionRun, TellsAFailedLogin) {
    EXPECT_EQ(run("login-fails"), Outcome::LoginFailed);
}

TEST_F(ExportSessionRun, RefusesListsThatCouldNotBeLoaded) {
    EXPECT_EQ(run("lists-fail"), Outcome::Refused);
}

TEST_F(ExportSessionRun, EndsAfterTheListsWhereOnlyTheyWereAskedFor) {
    options_.list = true;
    options_.images.clear();
    EXPECT_EQ(run(""), Outcome::Finished);
    EXPECT_EQ(plugIn_.log().last(), QStringLiteral("willBeDeactivated"));
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("event Smith Wedding")));
}

TEST_F(ExportSessionRun, RefusesAnUnknownEventOrPricingTemplate) {
    options_.event = QStringLiteral("79");
    EXPECT_EQ(run(""), Outcome::Refused);
    options_.event = QStringLiteral("77");
    options_.pricing = QStringLiteral("77");
    outcome_.reset();
    EXPECT_EQ(run(""), Outcome::Refused);
}

TEST_F(ExportSessionRun, RefusesAResizeBoxThatTheAccountDoesNotAllow) {
    options_.resize = ResizeBox{QStringLiteral("1280"), QStringLiteral("1280")};
    EXPECT_EQ(run("no-own-box"), Outcome::Refused);
}

TEST_F(ExportSessionRun, EndsWhereThePlugInRefusesTheSettings) {
    EXPECT_EQ(run("refuses"), Outcome::Refused);
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("shouldExport 0")));
}

TEST_F(ExportSessionRun, FailsWhereThePlugInCantBeMade) {
    EXPECT_EQ(run("unmakable"), Outcome::Failed);
}

TEST_F(ExportSessionRun, IsPartialWhereThePlugInLeavesAnImageOut) {
    EXPECT_EQ(run("leaves-out=1"), Outcome::Partial);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportSessionRun, GoesOnWithTheNextImageWhereOneCantBeRead) {
    plugIn_.tell("");
    start();
    QFile::remove(QFile::decodeName(options_.images[0]));
    EXPECT_EQ(wait(), Outcome::Partial);
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("willExport 0")));
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("didWrite 1 a-2.png")));
}

TEST_F(ExportSessionRun, CancelsWhereNoImageIsPrepared) {
    EXPECT_EQ(run("leaves-out=0 leaves-out=1"), Outcome::Failed);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportSessionRun, FailsWhereTheSystemHasNoThreadLeftForTheImages) {
    const test_support::ThreadShortage shortage;
    EXPECT_EQ(run(""), Outcome::Failed);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportSessionRun, WritesImagesForAPlugInThatWantsThemWritten) {
    EXPECT_EQ(run("wants-files"), Outcome::Finished);
    QFile written(QDir::tempPath() + QStringLiteral("/fake/a-2.png"));
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), "pixels");
}

TEST_F(ExportSessionRun, FailsWhereThePlugInCancels) {
    EXPECT_EQ(run("cancels"), Outcome::Failed);
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("shouldCancelExport")), 1)
        << "it may have left windows open";
}

TEST_F(ExportSessionRun, FailsWhereAFinishFollowsACancel) {
    EXPECT_EQ(run("cancels-then-finishes"), Outcome::Failed);
}

TEST_F(ExportSessionRun, CancelsASecondAfterACriticalAlert) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run("alerts"), Outcome::Failed);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportSessionRun, CancelsWhereTheFoldersOrTheUploadBreakOffSilently) {
    EXPECT_EQ(run("folders-break"), Outcome::Failed);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
    outcome_.reset();
    EXPECT_EQ(run("upload-breaks"), Outcome::Failed);
}

TEST_F(ExportSessionRun, IsUnconfirmedWhereTheFinishingRequestBringsNoAnswer) {
    EXPECT_EQ(run("unanswered"), Outcome::Unconfirmed);
}

TEST_F(ExportSessionRun, GivesUpALoginThatIsNotAnswered) {
    EXPECT_EQ(run("login-hangs", 700ms), Outcome::Failed);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportSessionRun, GivesUpListsThatDoNotCome) {
    EXPECT_EQ(run("lists-hang", 700ms), Outcome::Failed);
}

TEST_F(ExportSessionRun, GivesUpAnUploadThatStandsStill) {
    EXPECT_EQ(run("hangs", 700ms), Outcome::Failed);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportSessionRun, DoesNotTakeASlowImageForStandstill) {
    options_.images.pop_back();
    EXPECT_EQ(run("slow-images", 700ms), Outcome::Finished);
}

TEST_F(ExportSessionRun, EndsEvenWhereThePlugInIgnoresTheCancel) {
    EXPECT_EQ(run("hangs ignores-cancel", 700ms), Outcome::Failed);
}

TEST_F(ExportSessionRun, CancelsThroughThePlugInWhenTheUserGivesUp) {
    plugIn_.tell("hangs");
    start();
    ASSERT_TRUE(waitForLog(QStringLiteral("didFinishExport")));
    session_->interrupt();
    EXPECT_EQ(wait(), Outcome::Cancelled);
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportSessionRun, OffersNoFurtherImageAfterACancel) {
    plugIn_.tell("slow-images");
    start();
    ASSERT_TRUE(waitForLog(QStringLiteral("shouldWrite 0 a.tif 6 ") + plugIn_.folderName()));
    session_->interrupt();
    EXPECT_EQ(wait(), Outcome::Cancelled);
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("shouldExport 1")));
    EXPECT_FALSE(plugIn_.log().contains(QStringLiteral("didFinishExport")));
}

TEST_F(ExportSessionRun, FirstReasonOfACancelStands) {
    plugIn_.tell("alerts ignores-cancel");
    start(2s);
    ASSERT_TRUE(waitForLog(QStringLiteral("shouldCancelExport")));
    session_->interrupt();
    EXPECT_EQ(wait(), Outcome::Failed);
}
