#include "tests/host/CommandRun.h"
#include "tests/host/FakePlugInScript.h"
#include "tests/support/Waiting.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <gtest/gtest.h>

#include <csignal>

namespace {

class Command : public testing::Test {
protected:
    Command() {
        password_ = QFile::decodeName(plugIn_.file(QStringLiteral("password"), "secret\n"));
        image_ = QFile::decodeName(plugIn_.file(QStringLiteral("a.tif")));
    }

    /// Options of an export that goes well.
    QStringList arguments(const QStringList& more = {}) const {
        return QStringList{QStringLiteral("--plugin"),        FakePlugInScript::bundlePath(),
                           QStringLiteral("--user"),          QStringLiteral("ann"),
                           QStringLiteral("--password-file"), password_,
                           QStringLiteral("--event"),         QStringLiteral("77"),
                           QStringLiteral("--category"),      QStringLiteral("Ceremony")} +
               more;
    }
    QStringList json(const QStringList& more = {}) const {
        return arguments(QStringList{QStringLiteral("--json")} + more + QStringList{image_});
    }

    bool waitForLog(const QString& beginning) const {
        return test_support::waitUntil([this, beginning] { return !lineWith(beginning).isEmpty(); });
    }
    QString lineWith(const QString& beginning) const {
        for (const QString& line : plugIn_.log()) {
            if (line.startsWith(beginning))
                return line;
        }
        return {};
    }
    /// The folder for temporary files that the plug-in found.
    QString temporaryFolder() const { return lineWith(QStringLiteral("temporary ")).mid(10); }

    static std::string lastLine(const CommandRun& run) {
        return run.lines().empty() ? std::string() : run.lines().back().toStdString();
    }

    FakePlugInScript plugIn_;
    QString password_;
    QString image_;
};

const char* const kCancelled = R"({"event":"end","outcome":"cancelled","status":5})";

} // namespace

TEST_F(Command, TellsAnExportInJSONLines) {
    CommandRun run(json({QStringLiteral("--quality=9")}));
    EXPECT_EQ(run.wait(), 0) << run.errors().toStdString();
    EXPECT_EQ(run.output().toStdString(),
              R"({"event":"status","text":"Logged in as Ann"}
{"event":"lists","events":[{"id":"77","name":"Smith Wedding","categories":[{"id":"1","name":"Ceremony"},{"id":null,"name":"Party"}]},{"id":"78","name":"Gala","categories":null}],"pricingTemplates":[{"id":"5","name":"Standard"}]}
{"event":"host","call":"shouldBeginExport"}
{"event":"progress","current":1,"total":1,"message":"Step 1","indeterminate":false}
{"event":"image","index":0,"source":"a.tif","name":"a.jpg","outcome":"prepared"}
{"event":"progress","current":2,"total":1,"message":"Step 1","indeterminate":false}
{"event":"alert","style":"informational","modality":"application","message":"It is so.","info":"Line\nby line."}
{"event":"host","call":"shouldFinishExport"}
{"event":"end","outcome":"finished","status":0}
)");
    EXPECT_EQ(run.errors(), "It is so.: Line\\nby line.\n");
}

TEST_F(Command, TellsAnExportInWords) {
    CommandRun run(arguments({image_}));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), "Logged in as Ann\n1 of 1 images exported.\n");
}

TEST_F(Command, ListsInWordsAndEnds) {
    CommandRun run(arguments({QStringLiteral("--list")}));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(),
              "Logged in as Ann\nEvents:\n  77  Smith Wedding\n      1  Ceremony\n      -  Party\n"
              "  78  Gala\n      (its categories could not be loaded)\nPricing templates:\n"
              "  5  Standard\n");
}

TEST_F(Command, NamesImagesThatAreLeftOut) {
    plugIn_.tell("leaves-out=0");
    const QString other = QFile::decodeName(plugIn_.file(QStringLiteral("b.tif")));
    CommandRun run(arguments({QStringLiteral("--json"), image_, other}));
    EXPECT_EQ(run.wait(), 6);
    EXPECT_TRUE(run.output().contains(
        R"({"event":"image","index":0,"source":"a.tif","name":"a.jpg","outcome":"skipped"})"));
    EXPECT_TRUE(run.errors().contains("quillmark-export: " + QFile::encodeName(image_) + " was left out"));
    EXPECT_EQ(lastLine(run), R"({"event":"end","outcome":"partial","status":6})");
}

TEST_F(Command, SaysWhatAnUnconfirmedExportCameTo) {
    plugIn_.tell("unanswered");
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 1);
    EXPECT_TRUE(run.errors().contains(
        "The images were uploaded, but the service did not confirm that it processed them."));
    EXPECT_EQ(lastLine(run), R"({"event":"end","outcome":"unconfirmed","status":1})");
}

TEST_F(Command, EndsWithAFailedLogin) {
    plugIn_.tell("login-fails");
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 3);
    EXPECT_EQ(run.output(), "{\"event\":\"status\",\"text\":\"Login failed!\"}\n"
                            "{\"event\":\"end\",\"outcome\":\"login-failed\",\"status\":3}\n");
}

TEST_F(Command, ListsTheCandidatesForAnUnknownEvent) {
    CommandRun run(json({QStringLiteral("--event=Jones")}));
    EXPECT_EQ(run.wait(), 4);
    EXPECT_EQ(run.errors(),
              "quillmark-export: there is no event \"Jones\"; to choose from: Smith Wedding (77), "
              "Gala (78)\n");
    EXPECT_EQ(lastLine(run), R"({"event":"end","outcome":"refused","status":4})");
}

TEST_F(Command, TellsASheetThatRefusesTheSettings) {
    plugIn_.tell("refuses");
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 4);
    EXPECT_TRUE(run.output().contains(
        R"({"event":"alert","style":"warning","modality":"sheet","message":"Please select an event","info":"Now."})"));
}

TEST_F(Command, CancelsACriticalAlertThroughThePlugIn) {
    plugIn_.tell("alerts");
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 1);
    const auto lines = run.lines();
    ASSERT_GE(lines.size(), 3U);
    EXPECT_EQ(
        lines[lines.size() - 3],
        R"({"event":"alert","style":"critical","modality":"application","message":"It is so.","info":"Line\nby line."})");
    EXPECT_EQ(lines[lines.size() - 2], R"({"event":"host","call":"shouldCancelExport"})");
    EXPECT_EQ(lines.back(), R"({"event":"end","outcome":"failed","status":1})");
}

TEST_F(Command, SaysWhatItWaitedForWhenNothingHappensForTheIdleTimeOutAndTenSeconds) {
    plugIn_.tell("hangs");
    const auto begin = std::chrono::steady_clock::now();
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(11));
    EXPECT_TRUE(
        run.errors().contains("nothing has happened for 11 seconds; it was waited for the folders on the "
                              "FTP host"))
        << run.errors().toStdString();
    EXPECT_TRUE(run.output().contains(R"({"event":"host","call":"shouldCancelExport"})"));
}

TEST_F(Command, RefusesWrongUsageBeforeAnythingElse) {
    const struct {
        QStringList arguments;
        const char* complaint;
    } cases[] = {
        {{QStringLiteral("--json"), QStringLiteral("--bogus")},
         "quillmark-export: there is no option \"--bogus\"\n"},
        {json({plugIn_.path(QStringLiteral("gone.tif"))}),
         "gone.tif can't be read: No such file or directory\n"},
        {json({QDir::tempPath()}), "can't be read: it is a folder\n"},
        {json({QStringLiteral("--plugin"), QStringLiteral("/nowhere")}),
         "/nowhere is not a plug-in's bundle\n"},
        {json({QStringLiteral("--password-file"), QStringLiteral("/nowhere")}),
         "the password file /nowhere can't be read: No such file or directory\n"},
    };
    for (const auto& wrong : cases) {
        CommandRun run(wrong.arguments);
        EXPECT_EQ(run.wait(), 2);
        EXPECT_TRUE(run.errors().endsWith(wrong.complaint)) << run.errors().toStdString();
        EXPECT_EQ(run.output(), "{\"event\":\"end\",\"outcome\":\"usage\",\"status\":2}\n");
    }
    EXPECT_TRUE(plugIn_.log().isEmpty());
}

TEST_F(Command, AnswersHelpAndVersionWithoutLoadingWhatItDoesNotNeed) {
    qputenv("LD_DEBUG", "files");
    for (const char* option : {"--help", "--version"}) {
        CommandRun run({QLatin1String(option)});
        EXPECT_EQ(run.wait(), 0);
        EXPECT_FALSE(run.output().isEmpty());
        for (const char* library :
             {"libvips", "libsecret", "libQt6Widgets", "Quillmark.so", "plugins/platforms"})
            EXPECT_FALSE(run.errors().contains(library)) << library;
    }
    qunsetenv("LD_DEBUG");
}

TEST_F(Command, ReadsThePasswordFromItsInput) {
    CommandRun run(json({QStringLiteral("--password-file=-")}), "from input\nmore");
    EXPECT_EQ(run.wait(), 0);
    EXPECT_FALSE(lineWith(QStringLiteral("login ann/from input/")).isEmpty());
}

TEST_F(Command, NeverPrintsThePassword) {
    CommandRun run(json());
    EXPECT_EQ(run.wait(), 0);
    EXPECT_FALSE((run.output() + run.errors()).contains("secret"));
}

TEST_F(Command, NeedsATerminalToAskForAPassword) {
    QStringList without = json();
    without.removeAt(without.indexOf(QStringLiteral("--password-file")));
    without.removeAll(password_);
    CommandRun run(without);
    EXPECT_EQ(run.wait(), 2);
    EXPECT_TRUE(run.errors().contains("no password of ann is remembered")) << run.errors().toStdString();
}

TEST_F(Command, KeepsNothingOfAnEphemeralRun) {
    plugIn_.tell("slow-images");
    CommandRun run(json({QStringLiteral("--ephemeral")}));
    ASSERT_TRUE(waitForLog(QStringLiteral("shouldWrite 0")));
    const QString folder = temporaryFolder();
    EXPECT_EQ(QFileInfo(folder).path(), QDir::tempPath());
    EXPECT_EQ(QFileInfo(folder).permissions() &
                  (QFile::ReadGroup | QFile::ReadOther | QFile::ExeGroup | QFile::ExeOther),
              QFile::Permissions());
    EXPECT_TRUE(QFileInfo::exists(folder));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_FALSE(QFileInfo::exists(folder));
}

TEST_F(Command, CancelsThroughThePlugInAtASignal) {
    for (const int number : {SIGINT, SIGTERM}) {
        FakePlugInScript plugIn("hangs");
        CommandRun run(json({QStringLiteral("--ephemeral")}));
        ASSERT_TRUE(test_support::waitUntil(
            [&] { return plugIn.log().contains(QStringLiteral("didFinishExport")); }));
        const QString folder = plugIn.log().first().mid(10);
        run.sendSignal(number);
        EXPECT_EQ(run.wait(), 5);
        EXPECT_TRUE(run.output().contains(R"({"event":"host","call":"shouldCancelExport"})"));
        EXPECT_EQ(lastLine(run), kCancelled);
        EXPECT_FALSE(QFileInfo::exists(folder));
    }
}

TEST_F(Command, EndsAtOnceAtASecondSignal) {
    plugIn_.tell("hangs ignores-cancel");
    CommandRun run(json({QStringLiteral("--ephemeral")}));
    ASSERT_TRUE(waitForLog(QStringLiteral("didFinishExport")));
    run.sendSignal(SIGTERM);
    ASSERT_TRUE(waitForLog(QStringLiteral("shouldCancelExport")));
    run.sendSignal(SIGTERM);
    EXPECT_EQ(run.wait(), 5);
    EXPECT_EQ(lastLine(run), kCancelled);
    EXPECT_FALSE(QFileInfo::exists(temporaryFolder()));
}

TEST_F(Command, AsksForThePasswordWithoutAnEcho) {
    QStringList without = arguments({image_});
    without.removeAt(without.indexOf(QStringLiteral("--password-file")));
    without.removeAll(password_);
    TerminalRun run(without, 80);
    ASSERT_TRUE(run.waitFor("Password of ann: ")) << run.shown().toStdString();
    EXPECT_FALSE(run.echoes());
    run.type("typed\n");
    EXPECT_EQ(run.wait(), 0) << run.shown().toStdString();
    EXPECT_FALSE(run.shown().contains("typed"));
    EXPECT_FALSE(lineWith(QStringLiteral("login ann/typed/")).isEmpty());
}

TEST_F(Command, PutsTheTerminalBackWhenTheUserGivesUpAtThePrompt) {
    QStringList without = arguments({image_});
    without.removeAt(without.indexOf(QStringLiteral("--password-file")));
    without.removeAll(password_);
    TerminalRun run(without, 80);
    ASSERT_TRUE(run.waitFor("Password of ann: "));
    run.type("\x03");
    EXPECT_EQ(run.wait(), 5);
    EXPECT_TRUE(run.echoes());
}

TEST_F(Command, ShowsOneProgressLineThatFitsTheTerminalAndTakesItAway) {
    TerminalRun run(arguments({image_}), 5);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_TRUE(run.shown().contains("\r\x1b[KStep")) << run.shown().toStdString();
    EXPECT_FALSE(run.shown().contains("Step 1"));
    EXPECT_TRUE(run.shown().contains("\r\x1b[KIt is so."));
}

TEST_F(Command, ShowsNoProgressLineWhereItIsToBeQuiet) {
    TerminalRun run(arguments({QStringLiteral("--quiet"), image_}), 80);
    EXPECT_EQ(run.wait(), 0);
    EXPECT_FALSE(run.shown().contains("Step"));
}
