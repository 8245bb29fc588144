#pragma once

#include "host/core/ExportJournal.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace host {

inline ExportChoices someChoices() {
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

inline QString someService() {
    return QStringLiteral("www.quillmark.example ftp.quillmark.example");
}

inline std::vector<RecordedImage> someImages(int count = 3) {
    std::vector<RecordedImage> images;
    for (int i = 0; i < count; ++i)
        images.push_back({"/photos/" + QByteArray::number(i) + ".tif", QStringLiteral("%1.tif").arg(i),
                          QStringLiteral("Shoot")});
    return images;
}

/// A journal, the folder that keeps it, and the folder that the plug-in writes its files to.
class Journal : public testing::Test {
protected:
    Journal() { QDir().mkpath(exportFolder()); }

    QString folder() const { return place_.filePath(QStringLiteral("state/exports")); }
    QString exportFolder() const { return place_.filePath(QStringLiteral("Quillmark/")); }
    QString preparedPath(int image) const { return exportFolder() + QStringLiteral("%1.jpg").arg(image); }

    std::unique_ptr<ExportJournal> create(std::vector<RecordedImage> images = someImages(),
                                          const ExportChoices& choices = someChoices(),
                                          const QString& service = someService()) {
        auto journal = ExportJournal::create(folder(), service, choices, std::move(images), {}, error_);
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

inline std::vector<ImageOutcome> outcomes(const ExportRecord& record) {
    std::vector<ImageOutcome> all;
    for (const RecordedImage& image : record.images)
        all.push_back(image.outcome);
    return all;
}

inline constexpr auto kNotUploaded = ImageOutcome::NotUploaded;
inline constexpr auto kLeftOut = ImageOutcome::LeftOut;
inline constexpr auto kUploaded = ImageOutcome::Uploaded;

} // namespace host
