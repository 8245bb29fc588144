// Memory cards are found under the same path one after the other, and cameras number their photographs alike.

#include "host/core/SentNames.h"
#include "tests/host/JournalFixture.h"
#include "tests/support/Pictures.h"

#include <fcntl.h>
#include <sys/stat.h>

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
        return {{path_, QStringLiteral("IMG_1.jpg"), QStringLiteral("DCIM"), fileStamp(path_),
                 readCaptureTime(path_)}};
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
    // By a camera whose clock is ahead.
    const QDateTime captured = exported_.addSecs(7200);
    put(shot_, captured);
    exportAt(exported_);
    put(exported_.addSecs(60), captured, 16);
    EXPECT_EQ(exportAt(exported_.addDays(1)), QStringLiteral("IMG_1.jpg"));
    // By a program that keeps the file's time.
    put(shot_, captured, 24);
    EXPECT_EQ(exportAt(exported_.addDays(2)), QStringLiteral("IMG_1.jpg"));
    // Not every format keeps the photograph's.
    put(exported_.addDays(3), {}, 32);
    EXPECT_EQ(exportAt(exported_.addDays(4)), QStringLiteral("IMG_1.jpg"));
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
    // The first one is back, edited meanwhile.
    put(exported_.addSecs(180), shot_, 24);
    EXPECT_EQ(exportAt(exported_.addSecs(240)), QStringLiteral("IMG_1.jpg"));
    EXPECT_FALSE(sent_.replacedBy(images().front(), someChoices()));
}

TEST_F(Card, WithoutTimesInItsFilesItIsToldByTheirLastChange) {
    put(shot_);
    exportAt(exported_);
    put(shot_.addSecs(60), {}, 16);
    EXPECT_EQ(exportAt(exported_.addSecs(60)), QStringLiteral("IMG_1-2.jpg"));
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
    const QDateTime exported(QDate(2026, 6, 6), QTime(12, 0), Qt::UTC);
    const QDateTime captured(QDate(2026, 6, 5), QTime(23, 59, 58));
    const PhotographTrace trace{FileStamp{1'780'000'000'123, 12'000'000'000}, captured, exported};
    const std::vector<SentName> before{
        {QStringLiteral("Ceremony"), QStringLiteral("b.jpg"), "/b.jpg", trace},
        {QStringLiteral("Ceremony"), QStringLiteral("c.jpg"), "/c.jpg", {{}, {}, exported.addDays(1)}}};
    auto journal = ExportJournal::create(folder(), someService(), someChoices(),
                                         {{path, QStringLiteral("a.jpg")}}, before, error_);
    const QString journalPath = journal->path();
    journal->beginAttempt(someChoices(), {0}, exportFolder());
    journal->imageCaptured(0, captured);
    journal.reset();
    const auto record = reopen(journalPath)->record();
    EXPECT_EQ(record.images.front().stamp, fileStamp(path));
    EXPECT_EQ(record.images.front().stamp->size, 10);
    EXPECT_EQ(record.images.front().captured, captured);
    EXPECT_EQ(record.sentBefore, before);
}

TEST_F(Journal, OfWhatRemainsStaysWhereAnotherCardIsExportedUnderTheSamePath) {
    const QString path = exportFolder() + QStringLiteral("a.jpg");
    const auto put = [&path](const QByteArray& photograph) {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(photograph);
        ASSERT_TRUE(file.flush() && file.setFileTime(QDateTime::currentDateTime().addDays(-1),
                                                     QFileDevice::FileModificationTime));
    };
    const std::vector<RecordedImage> images{{QFile::encodeName(path), QStringLiteral("a.jpg")}};
    put("photograph");
    const QString first = create(images)->path();
    put("another photograph");
    const QString second = create(images)->path();
    EXPECT_TRUE(QFile::exists(first));
    create(images);
    EXPECT_TRUE(QFile::exists(first));
    EXPECT_FALSE(QFile::exists(second)) << "it is begun anew";
}

TEST_F(Journal, PassesOverTimesOfFilesThatNoClockShows) {
    const QByteArray path = QFile::encodeName(exportFolder() + QStringLiteral("a.jpg"));
    ASSERT_TRUE(QFile(QFile::decodeName(path)).open(QIODevice::WriteOnly));
    for (const time_t second : {time_t{-1}, time_t{1} << 50}) {
        const timespec times[]{{second, 0}, {second, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.constData(), times, 0), 0);
        struct stat status {};
        ASSERT_EQ(stat(path.constData(), &status), 0);
        // Not every file system keeps such ones.
        EXPECT_TRUE(status.st_mtim.tv_sec != second || !fileStamp(path)) << second;
    }
}
