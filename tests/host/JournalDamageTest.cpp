#include "host/core/JournalFolder.h"
#include "host/core/JournalFormat.h"
#include "tests/host/JournalFixture.h"

#include <sys/stat.h>

using namespace host;

// --- Damage ---

TEST_F(Journal, CutOffAtAnyByteClaimsNothingThatWasNotDone) {
    auto journal = begin();
    for (const int image : {0, 1, 2})
        prepare(*journal, image);
    upload(*journal, 0);
    journal->imageLeftOut(1, QStringLiteral("it can't be decoded"));
    upload(*journal, 2);
    journal->processingConfirmed();
    journal->attemptEnded(QStringLiteral("the end"));
    const QByteArray whole = contents(journal->path());
    const qsizetype beginning = journal_format::beginning(journal->record()).size();
    ASSERT_GT(beginning, 0);

    std::size_t lastCount = 0;
    for (qsizetype length = 0; length <= whole.size(); ++length) {
        qint64 good = -1;
        const auto record = journal_format::read(whole.left(length), good, error_);
        ASSERT_EQ(record.has_value(), length >= beginning) << length;
        if (!record)
            continue;
        EXPECT_EQ(good, whole.left(length).lastIndexOf('\n') + 1);
        EXPECT_GE(record->count(kUploaded), lastCount);
        lastCount = record->count(kUploaded);
        const bool confirmedLineIsWhole = whole.left(length).contains("{\"confirmed\":true}\n");
        EXPECT_EQ(record->processingConfirmed, confirmedLineIsWhole);
    }
    EXPECT_EQ(lastCount, 2U);
}

TEST_F(Journal, GoesOnBehindTheLastWholeLineOfATornOne) {
    auto journal = begin(2);
    prepare(*journal, 0);
    prepare(*journal, 1);
    upload(*journal, 0);
    const QString path = journal->path();
    journal.reset();
    for (const QByteArray& torn : {QByteArray("{\"uploaded\":1"), QByteArray("{"), QByteArray(5000, '\0'),
                                   QByteArray("\0\0{\"uploaded\":1}\n", 17)}) {
        write(path, contents(path) + torn);
        auto again = reopen(path);
        ASSERT_TRUE(again);
        again->beginAttempt(someChoices(), {1}, exportFolder());
        again.reset();
        EXPECT_EQ(outcomes(reopen(path)->record()), (std::vector{kUploaded, kNotUploaded}));
    }
}

TEST_F(Journal, NeverBringsBackWhatStandsBehindABlockOfZeros) {
    constexpr int kImages = 400;
    auto journal = begin(kImages);
    const QString path = journal->path();
    const auto zeros = contents(path).size() + 500;
    for (int image = 0; image < kImages; ++image)
        prepare(*journal, image);
    for (int image = 0; image < kImages; ++image)
        upload(*journal, image);
    journal->processingConfirmed();
    journal->attemptEnded({});
    journal.reset();
    QByteArray damaged = contents(path);
    damaged.replace(zeros, 4096, QByteArray(4096, '\0'));
    ASSERT_GT(damaged.indexOf("\"prepared\":399"), zeros);

    // What is appended ends within the place of the zeros, or among the lines behind it.
    for (int length = 0; length < 8000; length += 100) {
        write(path, damaged);
        auto again = reopen(path);
        ASSERT_TRUE(again);
        again->beginAttempt(someChoices(), {0, 1}, exportFolder());
        again->imageLeftOut(0, QString(length, QLatin1Char('x')));
        again->attemptEnded({});
        const ExportRecord inMemory = again->record();
        again.reset();
        qint64 good = 0;
        const auto read = journal_format::read(contents(path), good, error_);
        ASSERT_TRUE(read) << error_.toStdString();
        EXPECT_TRUE(*read == inMemory);
        EXPECT_EQ(good, contents(path).size());
        EXPECT_EQ(read->count(kUploaded), 0U);
    }
}

TEST_F(Journal, ThatIsDamagedTellsWhere) {
    auto journal = begin(2);
    prepare(*journal, 0);
    const QString path = journal->path();
    journal.reset();
    const QByteArray good = contents(path);
    const QByteArray last = "{\"uploaded\":0}\n";
    for (const char* line :
         {"", "{", "[1]", "null", "{\"uploaded\":2}", "{\"uploaded\":-1}", "{\"uploaded\":0.5}",
          "{\"uploaded\":1e300}", "{\"uploaded\":\"0\"}", "{\"prepared\":0}", "{\"leftOut\":0}",
          "{\"failed\":0}", "{\"confirmed\":1}", "{\"ended\":null}", "{\"attempt\":7}", "{\"attempt\":[0,9]}",
          "{\"else\":0}", "\xff\xfe"}) {
        write(path, good + line + '\n' + last);
        EXPECT_FALSE(ExportJournal::open(path, error_)) << line;
        EXPECT_TRUE(error_.startsWith(QStringLiteral("it is damaged"))) << error_.toStdString();
        EXPECT_FALSE(journalsIn(folder()).at(0).record);
        EXPECT_EQ(journalsIn(folder()).at(0).error, error_);
        EXPECT_EQ(contents(path), good + line + '\n' + last) << "it must be left as it is";
    }
}

TEST_F(Journal, WithABeginningThatMakesNoSenseIsRefused) {
    auto journal = create(someImages(1));
    const QString path = journal->path();
    journal.reset();
    const QByteArray good = contents(path);
    struct Change {
        const char* from;
        const char* to;
    };
    for (const auto& [from, to] :
         {Change{"\"name\":\"0.tif\"", "\"name\":\"../0.tif\""},
          Change{"\"name\":\"0.tif\"", "\"name\":\"\""}, Change{"\"name\":\"0.tif\"", "\"name\":\"..\""},
          Change{"\"name\":\"0.tif\"", "\"name\":\"a\\u0000b\""},
          Change{"\"source\":\"/photos", "\"source\":\"photos"}, Change{"/photos/0", "/photos/%00"},
          Change{"\"images\":1", "\"images\":2"}, Change{"\"images\":1", "\"images\":1e18"},
          Change{"\"sentBefore\":0", "\"sentBefore\":1"}, Change{"\"sentBefore\":0", "\"sentBefore\":-1"},
          Change{"\"journal\":5", "\"journal\":0"},
          Change{"\"service\":\"www", "\"service\":1,\"else\":\"www"},
          Change{"\"begun\":\"2", "\"begun\":\"x"}, Change{"\"account\":\"ann\"", "\"account\":1"},
          Change{"\"quality\":950", "\"quality\":-1"}, Change{"\"image\":0", "\"image\":1"}}) {
        ASSERT_TRUE(good.contains(from)) << from;
        write(path, QByteArray(good).replace(from, to));
        EXPECT_FALSE(ExportJournal::open(path, error_)) << to;
    }
    write(path, QByteArray(1'000'000, '[') + '\n');
    EXPECT_FALSE(ExportJournal::open(path, error_));
    write(path, {});
    EXPECT_FALSE(ExportJournal::open(path, error_));
}

TEST_F(Journal, OfAnotherVersionIsRefusedAndLeftAsItIs) {
    auto journal = begin(1);
    const QString path = journal->path();
    journal.reset();
    const QByteArray good = contents(path);
    // The first did not note the service: what is left must not go to whichever is known now.
    QByteArray first = QByteArray(good).replace("\"journal\":5", "\"journal\":1");
    first.remove(first.indexOf(",\"service\""), first.indexOf('}') - first.indexOf(",\"service\""));
    for (const QByteArray& other : {first, QByteArray(good).replace("\"journal\":5", "\"journal\":6")}) {
        write(path, other);
        EXPECT_FALSE(ExportJournal::open(path, error_));
        EXPECT_TRUE(error_.startsWith(QStringLiteral("it was kept by another version of the program")))
            << error_.toStdString();
        reconcileJournals(folder());
        create(someImages(1));
        EXPECT_EQ(contents(path), other);
    }
}

TEST_F(Journal, WithAnyByteChangedIsReadOrRefused) {
    auto journal = begin(2);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->attemptEnded(QStringLiteral("cut"));
    const QByteArray whole = contents(journal->path());
    int refused = 0;
    for (qsizetype i = 0; i < whole.size(); ++i) {
        for (const char byte : {'\0', '\n', '"', '{', '9', '\xff'}) {
            QByteArray changed = whole;
            changed[i] = byte;
            qint64 length = 0;
            const auto record = journal_format::read(changed, length, error_);
            refused += record ? 0 : 1;
            if (record) {
                EXPECT_LE(length, changed.size());
            }
        }
    }
    EXPECT_GT(refused, whole.size());
}

TEST_F(Journal, IsARegularFileOfTheUsers) {
    auto journal = begin();
    const QString path = journal->path();
    journal.reset();
    const QString link = folder() + QStringLiteral("/99-link.journal");
    const QString pipe = folder() + QStringLiteral("/98-pipe.journal");
    ASSERT_TRUE(QFile::link(path, link));
    ASSERT_EQ(mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    ASSERT_TRUE(QDir().mkdir(folder() + QStringLiteral("/97-folder.journal")));
    for (const QString& other : {link, pipe, folder() + QStringLiteral("/97-folder.journal"),
                                 folder() + QStringLiteral("/96-none.journal")}) {
        error_.clear();
        EXPECT_FALSE(ExportJournal::open(other, error_)) << other.toStdString();
        EXPECT_FALSE(error_.isEmpty());
    }
    for (const FoundJournal& found : journalsIn(folder()))
        EXPECT_EQ(found.record.has_value(), found.path == path) << found.path.toStdString();
}
