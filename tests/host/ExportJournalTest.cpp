#include "host/core/JournalFolder.h"
#include "tests/host/JournalFixture.h"
#include "tests/support/ThreadShortage.h"

using namespace host;

TEST_F(Journal, KeepsServiceChoicesSourcesNamesAndProjects) {
    auto images = someImages(1);
    images.push_back({QByteArray("/no text \xff%41\n.tif"), QStringLiteral("Größe \"1\".tif"), std::nullopt});
    const QString path = create(images)->path();
    const auto journal = reopen(path);
    EXPECT_EQ(journal->record().service, someService());
    EXPECT_EQ(journal->record().choices, someChoices());
    ASSERT_EQ(journal->record().images.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(journal->record().images[i].source, images[i].source);
        EXPECT_EQ(journal->record().images[i].name, images[i].name);
        EXPECT_EQ(journal->record().images[i].project, images[i].project);
    }
}

TEST_F(Journal, KeepsEveryOutcome) {
    auto journal = begin();
    prepare(*journal, 0);
    journal->imageLeftOut(1, QStringLiteral("it can't be decoded"));
    prepare(*journal, 2);
    upload(*journal, 0);
    journal->attemptEnded(QStringLiteral("There was an error uploading 2.jpg."));
    EXPECT_FALSE(journal->failure());
    const QString path = journal->path();
    journal.reset();

    const ExportRecord record = reopen(path)->record();
    EXPECT_EQ(outcomes(record), (std::vector{kUploaded, kLeftOut, kNotUploaded}));
    EXPECT_EQ(record.remaining(), (std::vector<std::size_t>{1, 2}));
    EXPECT_EQ(record.images[1].reason, QStringLiteral("it can't be decoded"));
    EXPECT_EQ(record.images[2].reason, QStringLiteral("There was an error uploading 2.jpg."));
    EXPECT_TRUE(record.lacksConfirmation());
    EXPECT_FALSE(record.isSettled());
}

TEST_F(Journal, IsSettledOnceAllIsUploadedAndProcessingConfirmed) {
    auto journal = begin(2);
    for (const int image : {0, 1}) {
        prepare(*journal, image);
        upload(*journal, image);
    }
    EXPECT_TRUE(journal->record().remaining().empty());
    EXPECT_TRUE(journal->record().lacksConfirmation());
    journal->processingConfirmed();
    EXPECT_TRUE(journal->record().isSettled());
}

TEST_F(Journal, ConfirmationDoesNotCoverWhatIsUploadedAfterwards) {
    auto journal = begin(2);
    prepare(*journal, 0);
    upload(*journal, 0);
    journal->processingConfirmed();
    EXPECT_FALSE(journal->record().lacksConfirmation());
    prepare(*journal, 1);
    upload(*journal, 1);
    EXPECT_TRUE(journal->record().lacksConfirmation());
}

TEST_F(Journal, OfWhichNothingWasUploadedLacksNoConfirmation) {
    auto journal = begin();
    EXPECT_FALSE(journal->record().lacksConfirmation());
    EXPECT_FALSE(journal->record().isSettled());
}

TEST_F(Journal, CountsTheImagesOfAFurtherTryAsThePlugInDoes) {
    auto journal = begin(4);
    for (const int image : {0, 2}) {
        prepare(*journal, image);
        upload(*journal, image);
    }
    journal->attemptEnded(QStringLiteral("cut"));
    const QString path = journal->path();
    journal.reset();

    journal = reopen(path);
    auto choices = someChoices();
    choices.quality = 1200;
    journal->beginAttempt(choices, journal->record().remaining(), exportFolder());
    journal->imageLeftOut(0, QStringLiteral("gone"));
    QFile file(preparedPath(3));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    journal->imagePrepared(1, preparedPath(3));
    upload(*journal, 3);
    journal.reset();

    const ExportRecord record = reopen(path)->record();
    EXPECT_EQ(outcomes(record), (std::vector{kUploaded, kLeftOut, kUploaded, kUploaded}));
    EXPECT_EQ(record.choices, choices);
}

TEST_F(Journal, PassesOverWhatBelongsToNoImageOfTheTry) {
    auto journal = begin(2);
    journal->imagePrepared(2, preparedPath(2));
    journal->imageLeftOut(7, QStringLiteral("gone"));
    journal->imageUploaded(preparedPath(0));
    EXPECT_EQ(outcomes(journal->record()), (std::vector{kNotUploaded, kNotUploaded}));
}

TEST_F(Journal, KeepsNothingThatOtherUsersCouldRead) {
    const auto journal = begin();
    const auto others =
        QFileDevice::ReadGroup | QFileDevice::ReadOther | QFileDevice::WriteGroup | QFileDevice::WriteOther;
    EXPECT_FALSE(QFileInfo(folder()).permissions() & others);
    EXPECT_FALSE(QFileInfo(journal->path()).permissions() & others);
}

TEST_F(Journal, CantBeBegunWhereThereIsNoFolder) {
    write(place_.filePath(QStringLiteral("state")), "a file");
    EXPECT_FALSE(ExportJournal::create(folder(), someService(), someChoices(), someImages(), {}, error_));
    EXPECT_FALSE(error_.isEmpty());
}

TEST_F(Journal, IsKeptWhereTheSystemHasNoThreadLeft) {
    QString path;
    {
        const test_support::ThreadShortage shortage;
        auto journal = begin(2);
        prepare(*journal, 0);
        upload(*journal, 0);
        EXPECT_FALSE(journal->failure());
        path = journal->path();
    }
    EXPECT_EQ(outcomes(reopen(path)->record()), (std::vector{kUploaded, kNotUploaded}));
}

// --- Holding ---

TEST_F(Journal, IsHeldByOneAtATime) {
    auto journal = begin();
    EXPECT_TRUE(journalsIn(folder()).front().isHeld);
    EXPECT_FALSE(ExportJournal::open(journal->path(), error_));
    EXPECT_EQ(error_, QStringLiteral("it belongs to an export that is running"));
    const QString path = journal->path();
    journal.reset();
    EXPECT_FALSE(journalsIn(folder()).front().isHeld);
    EXPECT_TRUE(reopen(path));
}

TEST_F(Journal, IsNotHeldByWhoeverLooksThroughTheFolder) {
    const auto journal = begin();
    const auto found = journalsIn(folder());
    ASSERT_EQ(found.size(), 1U);
    ASSERT_TRUE(found[0].record);
    EXPECT_EQ(found[0].record->images.size(), 3U);
    EXPECT_FALSE(found[0].record->attemptEnded);
}

// --- Images at which a try ends ---

TEST_F(Journal, SaysOfImagesThatWereNeitherPreparedNorLeftOutThatTheyCouldNotBeWritten) {
    auto journal = begin(4);
    prepare(*journal, 1);
    journal->imageLeftOut(2, QStringLiteral("It is no picture."));
    prepare(*journal, 3);
    journal->offeringEnded();
    journal->attemptEnded(QStringLiteral("It broke off."));
    const QString path = journal->path();
    journal.reset();
    journal = reopen(path);
    const ExportRecord& record = journal->record();
    EXPECT_EQ(record.images[0].reason.toStdString(),
              "Its file could not be written into the temporary folder.");
    EXPECT_EQ(record.images[1].reason.toStdString(), "It broke off.");
    EXPECT_EQ(outcomes(record), (std::vector{kNotUploaded, kNotUploaded, kLeftOut, kNotUploaded}));
    EXPECT_EQ(record.remaining(), (std::vector<std::size_t>{1, 2, 3, 0}));
}

TEST_F(Journal, BlamesTheImageThatIsToldOfForItsOwnTroubleAlone) {
    auto journal = begin(4);
    for (const int image : {0, 1, 2, 3})
        prepare(*journal, image);
    upload(*journal, 0);
    journal->troubleTold(QStringLiteral("There was an error uploading 1.jpg. It is forbidden."));
    journal->attemptEnded(QStringLiteral("It failed."));
    EXPECT_EQ(journal->record().images[1].reason.toStdString(),
              "There was an error uploading 1.jpg. It is forbidden.");
    EXPECT_EQ(journal->record().images[2].reason.toStdString(), "Its turn did not come.");

    // Those at which earlier tries have ended come behind all others.
    EXPECT_EQ(journal->record().remaining(), (std::vector<std::size_t>{2, 3, 1}));
    journal->beginAttempt(journal->record().choices, journal->record().remaining(), exportFolder());
    journal->troubleTold(QStringLiteral("There was an error reading 2.jpg."));
    journal->attemptEnded(QStringLiteral("It failed."));
    EXPECT_EQ(journal->record().remaining(), (std::vector<std::size_t>{3, 1, 2}));
}

TEST_F(Journal, BlamesNoImageForTroubleThatIsNotItsOwn) {
    auto journal = begin(2);
    prepare(*journal, 0);
    prepare(*journal, 1);
    journal->troubleTold(QStringLiteral("There was an error creating the remote directory."));
    journal->attemptEnded(QStringLiteral("It failed."));
    for (const int image : {0, 1})
        EXPECT_EQ(journal->record().images[image].reason.toStdString(), "It failed.");
    EXPECT_EQ(journal->record().remaining(), (std::vector<std::size_t>{0, 1}));
}
