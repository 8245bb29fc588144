#include "host/core/JournalFolder.h"
#include "tests/host/CommandRun.h"
#include "tests/host/FakePlugInScript.h"
#include "tests/support/Waiting.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <gtest/gtest.h>

#include <csignal>

namespace {

constexpr int kKilled = -1;

class Resume : public testing::Test {
protected:
    Resume() {
        qputenv("XDG_STATE_HOME", QFile::encodeName(plugIn_.path(QStringLiteral("state"))));
        password_ = QFile::decodeName(plugIn_.file(QStringLiteral("password"), "secret\n"));
        QDir().mkpath(plugIn_.path(QStringLiteral("Party")));
        for (const char* name : {"a.tif", "Party/a.tif", "b.tif"})
            images_ += QFile::decodeName(plugIn_.file(QLatin1String(name)));
    }
    ~Resume() override {
        qputenv("XDG_STATE_HOME", stateHome_);
        qunsetenv("QUILLMARK_SERVICE_CONFIG");
    }

    /// From now on the plug-in sends to that host.
    void useService(const QString& name, const QByteArray& webHost) {
        qputenv("QUILLMARK_SERVICE_CONFIG",
                plugIn_.file(name, "[service]\nwebHost=" + webHost + "\nftpHost=ftp.quillmark.example\n"));
    }

    QStringList login() const {
        return {QStringLiteral("--plugin"), FakePlugInScript::bundlePath(),    QStringLiteral("--user"),
                QStringLiteral("ann"),      QStringLiteral("--password-file"), password_};
    }
    /// Exports `images_`.
    CommandRun& run(const QByteArray& script, const QStringList& more = {}) {
        return start(script, login() +
                                 QStringList{QStringLiteral("--event"), QStringLiteral("77"),
                                             QStringLiteral("--category"), QStringLiteral("Ceremony")} +
                                 more + images_);
    }
    CommandRun& resume(const QByteArray& script = {}, const QStringList& more = {}) {
        return start(script, login() + QStringList{QStringLiteral("--resume")} + more);
    }
    CommandRun& start(const QByteArray& script, const QStringList& arguments) {
        plugIn_.tell(script);
        QFile::remove(plugIn_.path(QStringLiteral("plug-in.log")));
        return *runs_.emplace_back(std::make_unique<CommandRun>(arguments));
    }

    /// The plug-in's log of the last run: the lines that begin so, without that beginning.
    std::vector<std::string> logged(const QString& beginning) const {
        std::vector<std::string> found;
        for (const QString& line : plugIn_.log()) {
            if (line.startsWith(beginning))
                found.push_back(line.mid(beginning.size()).toStdString());
        }
        return found;
    }
    std::vector<std::string> uploads() const { return logged(QStringLiteral("upload ")); }
    std::vector<host::FoundJournal> journals() const { return host::journalsIn(host::userJournalFolder()); }

    FakePlugInScript plugIn_;
    QString password_;
    QStringList images_;

private:
    const QByteArray stateHome_ = qgetenv("XDG_STATE_HOME");
    std::vector<std::unique_ptr<CommandRun>> runs_;
};

using Names = std::vector<std::string>;

} // namespace

TEST_F(Resume, AfterAKillInAnyStageUploadsEachImageOnce) {
    struct Stage {
        const char* name;
        Names before;
        Names after;
    };
    for (const auto& [name, before, after] : {Stage{"in-images", {}, {"a.jpg", "a-2.jpg", "b.jpg"}},
                                              Stage{"in-folders", {}, {"a.jpg", "a-2.jpg", "b.jpg"}},
                                              Stage{"in-upload", {"a.jpg"}, {"a-2.jpg", "b.jpg"}},
                                              Stage{"after-deletion", {"a.jpg", "a-2.jpg"}, {"b.jpg"}},
                                              Stage{"in-finishing", {"a.jpg", "a-2.jpg", "b.jpg"}, {}}}) {
        EXPECT_EQ(run(QByteArray("dies=") + name).wait(), kKilled) << name;
        EXPECT_EQ(uploads(), before) << name;
        CommandRun& resumed = resume();
        EXPECT_EQ(resumed.wait(), 0) << name << resumed.errors().toStdString();
        EXPECT_EQ(uploads(), after) << name;
        EXPECT_EQ(logged(QStringLiteral("didFinishExport")).size(), 1U) << name;
        CommandRun& again = resume();
        EXPECT_EQ(again.wait(), 0) << name;
        EXPECT_TRUE(again.output().startsWith("Nothing is left of the export to \"Smith Wedding\" (77) of "))
            << again.output().toStdString();
        EXPECT_TRUE(logged({}).empty()) << "no plug-in is needed for that";
    }
}

TEST_F(Resume, KnowsWhatADeadRunHasUploadedThoughAnotherExportComesBetween) {
    EXPECT_EQ(run("dies=after-deletion").wait(), kKilled);
    EXPECT_EQ(uploads(), (Names{"a.jpg", "a-2.jpg"}));
    images_ = {QFile::decodeName(plugIn_.file(QStringLiteral("c.tif")))};
    // Its plug-in empties the folder that tells what the dead one has deleted, and so uploaded.
    EXPECT_EQ(run({}).wait(), 0);
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(uploads(), (Names{"b.jpg"}));
}

TEST_F(Resume, MakesTheSameChoicesAgain) {
    const QStringList choices{QStringLiteral("--auto-categories"),  QStringLiteral("--project=Shoot"),
                              QStringLiteral("--pricing=Standard"), QStringLiteral("--resize=2560x1440"),
                              QStringLiteral("--quality=9"),        QStringLiteral("--colorspace=prophoto")};
    EXPECT_EQ(run("upload-breaks=1", choices).wait(), 1);
    const auto chosen = [this] {
        Names all;
        for (const char* control : {"event", "category", "pricing", "resize", "quality", "colorspace"}) {
            for (const std::string& choice : logged(QLatin1String(control) + QLatin1Char(' ')))
                all.push_back(choice);
        }
        return all;
    };
    const Names first = chosen();
    ASSERT_EQ(first, (Names{"Smith Wedding", "Ceremony/1", "Standard", "1/2560/1440", "900", "2"}));
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(chosen(), first);
    EXPECT_EQ(logged(QStringLiteral("shouldWrite ")), (Names{"0 a-2.tif 6 Shoot", "1 b.tif 6 Shoot"}));
}

TEST_F(Resume, SaysWhatIsLeftAndWhatItWillDo) {
    CommandRun& broken = run("upload-breaks=1");
    EXPECT_EQ(broken.wait(), 1);
    EXPECT_TRUE(broken.errors().endsWith("quillmark-export: 2 images are left; --resume exports them\n"))
        << broken.errors().toStdString();
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 0);
    EXPECT_TRUE(resumed.output().startsWith("Going on with the export to \"Smith Wedding\" (77) of "));
    EXPECT_TRUE(
        resumed.output().contains(": of 3 images 2 are left and are sent now, under the same names.\n"));
    EXPECT_TRUE(resumed.output().endsWith("2 of 2 images exported.\n")) << resumed.output().toStdString();
}

TEST_F(Resume, SaysWhichPhotographsANewExportReplaces) {
    EXPECT_EQ(run({}).wait(), 0);
    CommandRun& same = run({});
    EXPECT_EQ(same.wait(), 0);
    EXPECT_FALSE(same.errors().contains("quillmark-export: ")) << "those that were edited are to be replaced";
    const std::string first = images_.first().toStdString();
    const auto exportFrom = [this](const QString& folder, const QStringList& names) {
        QDir().mkpath(plugIn_.path(folder));
        images_.clear();
        for (const QString& name : names)
            images_ += QFile::decodeName(plugIn_.file(folder + QLatin1Char('/') + name));
        CommandRun& other = run({});
        EXPECT_EQ(other.wait(), 0);
        return other.errors().left(other.errors().indexOf('\n')).toStdString();
    };
    EXPECT_EQ(
        exportFrom(QStringLiteral("2"), {QStringLiteral("a.png"), QStringLiteral("c.png")}),
        "quillmark-export: an image takes the place of another photograph that was sent there under the "
        "same name: a.jpg that of " +
            first);
    EXPECT_EQ(uploads(), (Names{"a.jpg", "c.jpg"}));
    EXPECT_EQ(exportFrom(QStringLiteral("3"), {QStringLiteral("b.bmp"), QStringLiteral("a.bmp")}),
              "quillmark-export: 2 of the images take the places of other photographs that were sent there "
              "under the same names: b.jpg that of " +
                  plugIn_.path(QStringLiteral("b.tif")).toStdString() + ", and so on");
}

TEST_F(Resume, SaysThatAPhotographOfAnotherCardUnderTheSamePathIsReplaced) {
    EXPECT_EQ(run({}).wait(), 0);
    QFile card(images_.first());
    ASSERT_TRUE(card.open(QIODevice::Append) && card.write("another") > 0 && card.flush());
    ASSERT_TRUE(
        card.setFileTime(QDateTime::currentDateTime().addSecs(-3600), QFileDevice::FileModificationTime));
    CommandRun& other = run({});
    EXPECT_EQ(other.wait(), 0);
    EXPECT_TRUE(other.errors().startsWith("quillmark-export: an image takes the place of another photograph"))
        << other.errors().toStdString();
}

TEST_F(Resume, SendsWhatLiesInAFolderThatTheServerCouldNotMake) {
    QDir().mkpath(plugIn_.path(QStringLiteral("new\nline")));
    images_ = {QFile::decodeName(plugIn_.file(QStringLiteral("new\nline/c.tif")))};
    EXPECT_EQ(run("upload-breaks", {QStringLiteral("--auto-categories")}).wait(), 1);
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(logged(QStringLiteral("shouldWrite ")), (Names{"0 c.tif 6 new_line"}));
}

TEST_F(Resume, SaysItInJSON) {
    EXPECT_EQ(run("upload-breaks=1").wait(), 1);
    CommandRun& resumed = resume({}, {QStringLiteral("--json")});
    EXPECT_EQ(resumed.wait(), 0);
    EXPECT_EQ(
        resumed.lines().front().toStdString(),
        R"({"event":"resume","eventId":"77","eventName":"Smith Wedding","total":3,"remaining":2,"confirmed":false})");
}

TEST_F(Resume, AsksOnlyForTheConfirmationWhereNothingElseIsMissing) {
    CommandRun& unconfirmed = run("unanswered");
    EXPECT_EQ(unconfirmed.wait(), 1);
    EXPECT_TRUE(unconfirmed.errors().endsWith(
        "quillmark-export: --resume asks the service again to process what is uploaded\n"));
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 0) << resumed.errors().toStdString();
    EXPECT_TRUE(resumed.output().contains(" all is uploaded; the service is asked again to process it.\n"));
    EXPECT_TRUE(logged(QStringLiteral("shouldExport")).empty());
    EXPECT_EQ(logged(QStringLiteral("didFinishExport")).size(), 1U);
    EXPECT_TRUE(journals().at(0).record->isSettled());
}

TEST_F(Resume, TriesALeftOutImageAgainUnderItsName) {
    EXPECT_EQ(run("leaves-out=1").wait(), 6);
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(logged(QStringLiteral("shouldWrite ")), (Names{"0 a-2.tif 6 Party"}));
}

TEST_F(Resume, AsksForTheConfirmationEvenWhereNoImageCanBePrepared) {
    EXPECT_EQ(run("leaves-out=1 unanswered").wait(), 1);
    CommandRun& resumed = resume("leaves-out=0");
    EXPECT_EQ(resumed.wait(), 1) << "none was prepared";
    EXPECT_TRUE(resumed.errors().contains("quillmark-export: no image could be prepared\n"))
        << resumed.errors().toStdString();
    EXPECT_EQ(logged(QStringLiteral("didFinishExport")).size(), 1U);
    EXPECT_FALSE(journals().at(0).record->lacksConfirmation());
}

TEST_F(Resume, NamesAnImageThatIsGone) {
    EXPECT_EQ(run("upload-breaks").wait(), 1);
    QFile::remove(images_[1]);
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 6);
    EXPECT_TRUE(
        resumed.errors().contains("quillmark-export: " + QFile::encodeName(images_[1]) + " was left out"));
    EXPECT_EQ(uploads(), (Names{"a.jpg", "b.jpg"}));
    EXPECT_EQ(journals().at(0).record->remaining(), (std::vector<std::size_t>{1}));
}

TEST_F(Resume, KeepsTheReasonWhyImagesAreLeft) {
    EXPECT_EQ(run("alerts").wait(), 1);
    const auto record = journals().at(0).record;
    ASSERT_TRUE(record);
    for (const host::RecordedImage& image : record->images)
        EXPECT_EQ(image.reason, QStringLiteral("It is so.: Line\nby line."));
}

TEST_F(Resume, NeedsNoPasswordInTheJournal) {
    EXPECT_EQ(run("upload-breaks", {QStringLiteral("--remember")}).wait(), 1);
    QFile journal(journals().at(0).path);
    ASSERT_TRUE(journal.open(QIODevice::ReadOnly));
    const QByteArray contents = journal.readAll();
    EXPECT_TRUE(contents.contains("\"account\":\"ann\""));
    EXPECT_FALSE(contents.contains("secret"));
}

TEST_F(Resume, AfterAnInterruptionGoesOn) {
    CommandRun& interrupted = run("hangs");
    ASSERT_TRUE(
        test_support::waitUntil([this] { return !logged(QStringLiteral("didFinishExport")).empty(); }));
    interrupted.sendSignal(SIGTERM);
    EXPECT_EQ(interrupted.wait(), 5);
    EXPECT_EQ(journals().at(0).record->images[0].reason, QStringLiteral("The export was cancelled."));
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(uploads().size(), 3U);
}

TEST_F(Resume, DoesNotTouchAnExportThatIsRunning) {
    CommandRun& running = run("hangs");
    ASSERT_TRUE(
        test_support::waitUntil([this] { return !logged(QStringLiteral("didFinishExport")).empty(); }));
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 1);
    EXPECT_TRUE(resumed.errors().contains("it belongs to an export that is running"))
        << resumed.errors().toStdString();
    running.sendSignal(SIGKILL);
    running.wait();
}

TEST_F(Resume, WithoutAnEarlierExportIsWrongUsage) {
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 2);
    EXPECT_EQ(resumed.errors(), "quillmark-export: no export of \"ann\" is known that could be resumed\n");
}

TEST_F(Resume, OfAnotherAccountIsNotOffered) {
    EXPECT_EQ(run("upload-breaks").wait(), 1);
    CommandRun& resumed = resume({}, {QStringLiteral("--user=ben")});
    EXPECT_EQ(resumed.wait(), 2);
}

TEST_F(Resume, OfAnotherServiceIsNotOffered) {
    EXPECT_EQ(run("dies=in-upload").wait(), kKilled);
    useService(QStringLiteral("elsewhere"), "elsewhere.quillmark.example");
    CommandRun& elsewhere = resume();
    EXPECT_EQ(elsewhere.wait(), 2);
    EXPECT_EQ(elsewhere.errors(), "quillmark-export: no export of \"ann\" is known that could be resumed\n");
    EXPECT_TRUE(logged({}).empty()) << "nothing may go there";
    // An equal account and event of the other service are no part of the first export.
    EXPECT_EQ(run("upload-breaks=1").wait(), 1);
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(uploads(), (Names{"a-2.jpg", "b.jpg"}));
    qunsetenv("QUILLMARK_SERVICE_CONFIG");
    // Although other plug-in objects have emptied the folder since, what had arrived is known.
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(uploads(), (Names{"a-2.jpg", "b.jpg"}));
}

TEST_F(Resume, NeedsToKnowTheService) {
    EXPECT_EQ(run("upload-breaks").wait(), 1);
    qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(plugIn_.path(QStringLiteral("none.ini"))));
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 1);
    EXPECT_TRUE(resumed.errors().contains("none.ini: the file does not exist"))
        << resumed.errors().toStdString();
    CommandRun& exported = run({});
    EXPECT_EQ(exported.wait(), 0);
    EXPECT_TRUE(exported.errors().contains("the plug-in does not tell which service it sends to"));
}

TEST_F(Resume, GoesOnWithTheNamedEventAndAsksWhereThereIsMoreThanOne) {
    EXPECT_EQ(run("upload-breaks").wait(), 1);
    EXPECT_EQ(run("upload-breaks", {QStringLiteral("--event=Gala")}).wait(), 1);
    CommandRun& unclear = resume();
    EXPECT_EQ(unclear.wait(), 2);
    EXPECT_TRUE(unclear.errors().endsWith(
        "something is left for more than one event; choose with --event: Gala (78), Smith Wedding (77)\n"))
        << unclear.errors().toStdString();
    CommandRun& unknown = resume({}, {QStringLiteral("--event=Jones")});
    EXPECT_EQ(unknown.wait(), 2);
    EXPECT_TRUE(unknown.errors().contains("there is no event \"Jones\""));
    EXPECT_EQ(resume({}, {QStringLiteral("--event=Gala")}).wait(), 0);
    EXPECT_EQ(logged(QStringLiteral("event ")), (Names{"Gala"}));
    EXPECT_EQ(resume().wait(), 0);
    EXPECT_EQ(logged(QStringLiteral("event ")), (Names{"Smith Wedding"}));
}

TEST_F(Resume, RefusesADamagedJournalWithAClearError) {
    EXPECT_EQ(run("upload-breaks").wait(), 1);
    QFile file(journals().at(0).path);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("{\"uploaded\":77}\n");
    file.close();
    CommandRun& resumed = resume();
    EXPECT_EQ(resumed.wait(), 1);
    EXPECT_TRUE(resumed.errors().contains(".journal can't be used: it is damaged at or after line "))
        << resumed.errors().toStdString();
}

TEST_F(Resume, KnowsNothingOfAnEphemeralExport) {
    EXPECT_EQ(run("upload-breaks", {QStringLiteral("--ephemeral")}).wait(), 1);
    EXPECT_FALSE(QFileInfo::exists(host::userJournalFolder()));
}

TEST_F(Resume, IsNotNeededToExportWhereNoJournalCanBeKept) {
    plugIn_.file(QStringLiteral("state"), "a file");
    CommandRun& exported = run({});
    EXPECT_EQ(exported.wait(), 0);
    EXPECT_TRUE(
        exported.errors().contains("no journal can be kept, so that --resume won't know of this export: "));
    EXPECT_EQ(uploads().size(), 3U);
}

TEST_F(Resume, TakesAnImageThatCantBeWrittenLastSoThatItKeepsNoOtherBack) {
    EXPECT_EQ(run("unwritable=0").wait(), 1);
    EXPECT_EQ(uploads(), Names{});
    const host::ExportRecord record = *journals().at(0).record;
    EXPECT_EQ(record.images[0].reason.toStdString(),
              "Its file could not be written into the temporary folder.");
    for (const int other : {1, 2})
        EXPECT_EQ(record.images[other].reason.toStdString(), "Its turn did not come.");

    EXPECT_EQ(resume("unwritable=2").wait(), 1);
    EXPECT_EQ(uploads(), (Names{"a-2.jpg", "b.jpg"}));
    CommandRun& last = resume();
    EXPECT_EQ(last.wait(), 0) << last.errors().toStdString();
    EXPECT_EQ(uploads(), Names{"a.jpg"});
}

TEST_F(Resume, KeepsAllThatWentWrongInItsOrder) {
    EXPECT_EQ(run("alerts-twice").wait(), 1);
    const host::ExportRecord record = *journals().at(0).record;
    for (const host::RecordedImage& image : record.images)
        EXPECT_EQ(image.reason.toStdString(), "It was so.: Line\nby line. It is so.: Line\nby line.");
}
