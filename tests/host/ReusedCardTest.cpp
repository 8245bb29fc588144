// Memory cards are found under the same path one after the other, and cameras number their photographs alike.

#include "host/core/SentNames.h"
#include "tests/host/JournalFixture.h"
#include "tests/support/Pictures.h"

using namespace host;

namespace {

class Card : public testing::Test {
protected:
    /// The photograph that is found under the path now.
    void put(const QDateTime& modified, const QDateTime& captured = {}, int side = 8) {
        vips::VImage picture = test_support::gradient(side, side);
        if (captured.isValid())
            picture.set("exif-ifd2-DateTimeOriginal",
                        captured.toLocalTime().toString(QStringLiteral("yyyy:MM:dd hh:mm:ss")).toUtf8());
        QFile file(QFile::decodeName(path_));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(test_support::file(picture, ".jpg"));
        ASSERT_TRUE(file.flush() && file.setFileTime(modified, QFileDevice::FileModificationTime));
    }

    std::vector<RecordedImage> images() const {
        return {{path_, QStringLiteral("IMG_1.jpg"), QStringLiteral("DCIM"), fileStamp(path_)}};
    }
    /// What an export that begins at `begun` knows, and what the next one makes of it.
    QString exportAt(const QDateTime& begun) {
        ExportRecord record;
        record.begun = begun;
        record.choices = someChoices();
        record.images = images();
        sent_.giveNames(record.images, record.choices);
        sent_.add(record);
        return record.images.front().name;
    }

    const QDateTime shot_{QDate(2026, 6, 6), QTime(12, 0), Qt::UTC};
    const QDateTime exported_ = shot_.addSecs(3600);
    const QTemporaryDir folder_;
    const QByteArray path_ = QFile::encodeName(folder_.filePath(QStringLiteral("IMG_1.jpg")));
    SentNames sent_;
};

} // namespace

TEST_F(Card, APhotographThatHasNotChangedKeepsItsName) {
    put(shot_, shot_);
    exportAt(exported_);
    EXPECT_EQ(exportAt(exported_.addDays(1)), QStringLiteral("IMG_1.jpg"));
}

TEST_F(Card, AnEditedPhotographKeepsItsName) {
    put(shot_, shot_);
    exportAt(exported_);
    put(exported_.addSecs(60), shot_, 16);
    EXPECT_EQ(exportAt(exported_.addDays(1)), QStringLiteral("IMG_1.jpg"));
    // Not every format keeps the time.
    put(exported_.addDays(2), {}, 24);
    EXPECT_EQ(exportAt(exported_.addDays(3)), QStringLiteral("IMG_1.jpg"));
}

TEST_F(Card, OfAnotherCameraItTakesNoPlaceOfTheFirstOnes) {
    put(shot_, shot_);
    exportAt(exported_);
    const SentName first = sent_.all().front();
    put(shot_.addSecs(60), shot_.addSecs(60), 16);
    const SentName* const replaced = sent_.replacedBy(images().front(), someChoices());
    ASSERT_TRUE(replaced);
    EXPECT_EQ(*replaced, first);
    EXPECT_EQ(exportAt(exported_.addSecs(60)), QStringLiteral("IMG_1-2.jpg"));
    EXPECT_EQ(exportAt(exported_.addSecs(120)), QStringLiteral("IMG_1-2.jpg"));
    // The first one is back.
    put(shot_, shot_);
    EXPECT_EQ(exportAt(exported_.addSecs(180)), QStringLiteral("IMG_1.jpg"));
    EXPECT_FALSE(sent_.replacedBy(images().front(), someChoices()));
}

TEST_F(Card, UsedAgainAfterTheExportItTakesNoPlaceOfWhatWasOnIt) {
    put(shot_, shot_);
    exportAt(exported_);
    put(exported_.addDays(1), exported_.addDays(1), 16);
    EXPECT_EQ(exportAt(exported_.addDays(2)), QStringLiteral("IMG_1-2.jpg"));
}

TEST_F(Card, AFileThatIsAwayForAMomentIsTakenForTheSame) {
    put(shot_, shot_);
    exportAt(exported_);
    ASSERT_TRUE(QFile::remove(QFile::decodeName(path_)));
    EXPECT_EQ(exportAt(exported_.addDays(1)), QStringLiteral("IMG_1.jpg"));
    put(shot_, shot_);
    EXPECT_EQ(exportAt(exported_.addDays(2)), QStringLiteral("IMG_1.jpg"));
}

TEST_F(Journal, NotesByWhatAFileIsKnownAgainAlsoForTheExportsBefore) {
    const QByteArray path = QFile::encodeName(exportFolder() + QStringLiteral("a.jpg"));
    QFile file(QFile::decodeName(path));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("photograph");
    file.close();
    const std::vector<SentName> before{{QStringLiteral("Ceremony"), QStringLiteral("b.jpg"), "/b.jpg",
                                        FileStamp{1'780'000'000'123, 12'000'000'000},
                                        QDateTime(QDate(2026, 6, 6), QTime(12, 0), Qt::UTC)},
                                       {QStringLiteral("Ceremony"), QStringLiteral("c.jpg"), "/c.jpg",
                                        std::nullopt, QDateTime(QDate(2026, 6, 7), QTime(12, 0), Qt::UTC)}};
    auto journal = ExportJournal::create(folder(), someService(), someChoices(),
                                         {{path, QStringLiteral("a.jpg")}}, before, error_);
    const QString journalPath = journal->path();
    journal.reset();
    const auto record = reopen(journalPath)->record();
    EXPECT_EQ(record.images.front().stamp, fileStamp(path));
    EXPECT_EQ(record.images.front().stamp->size, 10);
    EXPECT_EQ(record.sentBefore, before);
}
