#include "host/core/ExportJournal.h"

#include "host/core/JournalFolder.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

using namespace host;

namespace {

ExportChoices someChoices() {
    ExportChoices choices;
    choices.account = QStringLiteral("ann");
    choices.eventId = QStringLiteral("77");
    choices.eventName = QStringLiteral("Smith & Söhne \"Wedding\"\n");
    choices.category = QStringLiteral("Ceremony");
    choices.pricingId = QStringLiteral("5");
    choices.pricingName = QStringLiteral("Standard");
    choices.resize = ResizeBox{QStringLiteral("2560"), QStringLiteral("1440")};
    choices.quality = 950;
    choices.colorSpace = 2;
    return choices;
}

std::vector<RecordedImage> someImages(int count = 3) {
    std::vector<RecordedImage> images;
    for (int i = 0; i < count; ++i)
        images.push_back({"/photos/" + QByteArray::number(i) + ".tif", QStringLiteral("%1.tif").arg(i),
                          QStringLiteral("Shoot")});
    return images;
}

class Journal : public testing::Test {
protected:
    Journal() { QDir().mkpath(exportFolder()); }

    QString folder() const { return place_.filePath(QStringLiteral("state/exports")); }
    QString exportFolder() const { return place_.filePath(QStringLiteral("Quillmark/")); }
    QString preparedPath(int image) const { return exportFolder() + QStringLiteral("%1.jpg").arg(image); }

    std::unique_ptr<ExportJournal> create(std::vector<RecordedImage> images = someImages(),
                                          const ExportChoices& choices = someChoices()) {
        auto journal = ExportJournal::create(folder(), choices, std::move(images), error_);
        EXPECT_TRUE(journal) << error_.toStdString();
        return journal;
    }
    /// With a first try of all its images.
    std::unique_ptr<ExportJournal> begin(int count = 3) {
        auto journal = create(someImages(count));
        journal->beginAttempt(journal->record().choices, journal->record().remaining(), exportFolder());
        return journal;
    }
    /// The plug-in writes the image's file.
    void prepare(ExportJournal& journal, int image) {
        QFile file(preparedPath(image));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        journal.imagePrepared(static_cast<std::uint32_t>(image), file.fileName());
    }
    /// The server confirms the file: the plug-in deletes it, and tells so.
    void upload(ExportJournal& journal, int image) {
        EXPECT_TRUE(QFile::remove(preparedPath(image)));
        journal.imageUploaded(preparedPath(image));
    }
    std::unique_ptr<ExportJournal> reopen(const QString& path) {
        auto journal = ExportJournal::open(path, error_);
        EXPECT_TRUE(journal) << error_.toStdString();
        return journal;
    }
    QByteArray contents(const QString& path) const {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }
    void write(const QString& path, const QByteArray& bytes) const {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
    }

    QTemporaryDir place_;
    QString error_;
};

std::vector<ImageOutcome> outcomes(const ExportRecord& record) {
    std::vector<ImageOutcome> all;
    for (const RecordedImage& image : record.images)
        all.push_back(image.outcome);
    return all;
}

constexpr auto kNotUploaded = ImageOutcome::NotUploaded;
constexpr auto kLeftOut = ImageOutcome::LeftOut;
constexpr auto kUploaded = ImageOutcome::Uploaded;

} // namespace

TEST_F(Journal, KeepsChoicesSourcesNamesAndProjects) {
    auto images = someImages(1);
    images.push_back({QByteArray("/no text \xff%41\n.tif"), QStringLiteral("Größe \"1\".tif"), std::nullopt});
    const QString path = create(images)->path();
    const auto journal = reopen(path);
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
