#include "host/core/JournalFolder.h"
#include "tests/host/JournalFixture.h"

#include <QtCore/QThread>

using namespace host;

// --- The folder ---

TEST_F(Journal, FolderListsTheNewestExportFirst) {
    std::vector<QString> paths;
    for (int i = 0; i < 3; ++i) {
        ExportChoices choices = someChoices();
        choices.eventId = QString::number(i);
        paths.insert(paths.begin(), create(someImages(1), choices)->path());
        QThread::msleep(2); // The names differ in their milliseconds.
    }
    std::vector<QString> found;
    for (const FoundJournal& journal : journalsIn(folder()))
        found.push_back(journal.path);
    EXPECT_EQ(found, paths);
}

TEST_F(Journal, FolderPassesOverWhatTheFirstLineTellsNotToBeWanted) {
    const QString wanted = create()->path();
    ExportChoices choices = someChoices();
    choices.eventId = QStringLiteral("78");
    const QString other = create(someImages(), choices)->path();
    const auto found = [this] {
        std::vector<QString> paths;
        for (const FoundJournal& journal : journalsIn(folder(), [](const ExportRecord& firstLine) {
                 return firstLine.service == someService() &&
                        firstLine.choices.account == someChoices().account &&
                        firstLine.choices.eventId == someChoices().eventId && firstLine.begun.isValid();
             }))
            paths.push_back(journal.path);
        return paths;
    };
    EXPECT_EQ(found(), std::vector{wanted});
    // What is damaged behind its first line is still known not to be wanted.
    write(other, contents(other).replace("1.tif", "1\"tif"));
    EXPECT_EQ(found(), std::vector{wanted});
    write(other, "nonsense\n");
    EXPECT_EQ(found(), (std::vector{other, wanted})) << "it may be any";
}

TEST_F(Journal, FolderOfAUserIsWhereStateIsKept) {
    const QByteArray before = qgetenv("XDG_STATE_HOME");
    qputenv("XDG_STATE_HOME", "/somewhere");
    EXPECT_EQ(userJournalFolder(), QStringLiteral("/somewhere/Quillmark/exports"));
    qputenv("XDG_STATE_HOME", "not/absolute");
    const QString inHome = QDir::homePath() + QStringLiteral("/.local/state/Quillmark/exports");
    EXPECT_EQ(userJournalFolder(), inHome);
    qunsetenv("XDG_STATE_HOME");
    EXPECT_EQ(userJournalFolder(), inHome);
    qputenv("XDG_STATE_HOME", before);
}

TEST_F(Journal, OfASettledExportGoesWithTheNextOneToTheEvent) {
    auto journal = begin(1);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    const QString settled = journal->path();
    journal.reset();
    ExportChoices other = someChoices();
    other.eventId = QStringLiteral("78");
    create(someImages(), other);
    EXPECT_TRUE(QFileInfo::exists(settled));
    create();
    EXPECT_FALSE(QFileInfo::exists(settled));
}

TEST_F(Journal, OfASettledExportIsNotKeptForEver) {
    auto journal = begin(1);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    const QString settled = journal->path();
    const QString left = create(someImages())->path();
    const auto date = [](const QDateTime& time) { return time.toString(Qt::ISODate).toUtf8(); };
    const QDateTime begun = journal->record().begun;
    journal.reset();
    for (const QString& path : {settled, left})
        write(path, contents(path).replace(date(begun), date(begun.addDays(-31))));
    ExportChoices other = someChoices();
    other.eventId = QStringLiteral("78");
    create(someImages(), other);
    EXPECT_FALSE(QFileInfo::exists(settled));
    EXPECT_TRUE(QFileInfo::exists(left)) << "something is left of it";
}

TEST_F(Journal, GoesWhereANewExportHasAllThatRemains) {
    auto journal = begin(3);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    const QString old = journal->path();
    journal.reset();

    auto images = someImages(3);
    images.erase(images.begin() + 1);
    create(images);
    EXPECT_TRUE(QFileInfo::exists(old)) << "one of its images is not in the new one";
    ExportChoices elsewhere = someChoices();
    elsewhere.category = QStringLiteral("Party");
    create(someImages(3), elsewhere);
    EXPECT_TRUE(QFileInfo::exists(old)) << "the new one goes elsewhere";
    images = someImages(3);
    images.erase(images.begin());
    create(images);
    EXPECT_FALSE(QFileInfo::exists(old));
}

TEST_F(Journal, OfAnUnconfirmedExportStaysUntilALaterOneToTheEventIsConfirmed) {
    auto unconfirmed = begin(2);
    for (const int image : {0, 1}) {
        prepare(*unconfirmed, image);
        upload(*unconfirmed, image);
    }
    unconfirmed->attemptEnded({});
    const QString path = unconfirmed->path();
    unconfirmed.reset();
    const auto exportLater = [this](const ExportChoices& choices) {
        auto later = create(someImages(2), choices);
        later->beginAttempt(choices, {0, 1}, exportFolder());
        return later;
    };
    exportLater(someChoices())->attemptEnded(QStringLiteral("It failed."));
    ASSERT_TRUE(QFileInfo::exists(path)) << "the service was not asked";
    ExportChoices elsewhere = someChoices();
    elsewhere.eventId = QStringLiteral("78");
    confirmEarlierExports(exportLater(elsewhere)->processingConfirmed());
    ASSERT_TRUE(QFileInfo::exists(path)) << "the service was asked for another event";
    ExportChoices otherCategory = someChoices();
    otherCategory.category = QStringLiteral("Party");
    auto confirmed = exportLater(otherCategory);
    ASSERT_TRUE(QFileInfo::exists(path)) << "whether the service answers is not known";
    confirmEarlierExports(confirmed->processingConfirmed());
    EXPECT_FALSE(QFileInfo::exists(path)) << "nothing is left to do";
}

TEST_F(Journal, OfAnUnconfirmedExportWithSomethingLeftLearnsOfALaterConfirmation) {
    auto unconfirmed = begin(2);
    prepare(*unconfirmed, 0);
    upload(*unconfirmed, 0);
    unconfirmed->attemptEnded(QStringLiteral("It failed."));
    const QString path = unconfirmed->path();
    unconfirmed.reset();
    ExportChoices otherCategory = someChoices();
    otherCategory.category = QStringLiteral("Party");
    auto later = create(someImages(2), otherCategory);
    later->beginAttempt(otherCategory, {0, 1}, exportFolder());
    confirmEarlierExports(later->processingConfirmed());
    const auto journal = reopen(path);
    EXPECT_TRUE(journal->record().processingConfirmed);
    EXPECT_EQ(outcomes(journal->record()), (std::vector{kUploaded, kNotUploaded}));
}

TEST_F(Journal, OfImagesSentAfterALaterExportsLastOneDoesNotTakeItsConfirmation) {
    auto later = create(someImages(1), [] {
        ExportChoices choices = someChoices();
        choices.category = QStringLiteral("Party");
        return choices;
    }());
    later->beginAttempt(later->record().choices, {0}, exportFolder());
    QThread::msleep(20); // More than the file system's clock is late.
    auto meanwhile = begin(1);
    prepare(*meanwhile, 0);
    upload(*meanwhile, 0);
    const QString path = meanwhile->path();
    meanwhile.reset();
    confirmEarlierExports(later->processingConfirmed());
    EXPECT_TRUE(reopen(path)->record().lacksConfirmation());
}

TEST_F(Journal, OfAnotherServiceStays) {
    auto settled = begin(1);
    prepare(*settled, 0);
    upload(*settled, 0);
    settled->processingConfirmed();
    const QString path = settled->path();
    settled.reset();
    const QString unsettled = create()->path();
    ASSERT_FALSE(QFileInfo::exists(path));
    create(someImages(), someChoices(), QStringLiteral("www.quillmark.example=127.0.0.1:8443"));
    EXPECT_TRUE(QFileInfo::exists(unsettled)) << "the new one's images go elsewhere";

    auto elsewhere = create(someImages(1), someChoices(), QStringLiteral("elsewhere"));
    elsewhere->beginAttempt(someChoices(), {0}, exportFolder());
    prepare(*elsewhere, 0);
    upload(*elsewhere, 0);
    elsewhere->processingConfirmed();
    const QString settledElsewhere = elsewhere->path();
    elsewhere.reset();
    create();
    EXPECT_TRUE(QFileInfo::exists(settledElsewhere));
}

TEST_F(Journal, OfARunningExportStays) {
    const auto running = begin();
    create();
    EXPECT_TRUE(QFileInfo::exists(running->path()));
}

TEST_F(Journal, ThatIsDiscardedIsGone) {
    auto journal = begin();
    EXPECT_TRUE(journal->discard());
    EXPECT_TRUE(journalsIn(folder()).empty());
    prepare(*journal, 0);
    upload(*journal, 0);
    EXPECT_EQ(journal->record().count(kUploaded), 1U);
}
