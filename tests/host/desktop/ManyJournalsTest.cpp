// What the journals of earlier exports cost whoever exports: measured in a release build, with nothing beside
// it.

#include "host/core/Service.h"
#include "tests/host/JournalFixture.h"
#include "tests/host/desktop/ExportWindow.h"
#include "tests/host/desktop/Heartbeat.h"

using host::ExportJournal;
using test_support::waitUntil;

namespace {

constexpr double kLongestPause = 50; ///< Milliseconds.
constexpr int kImages = 1000;

class ManyJournals : public ExportWindow {
protected:
    /// Of exports whose last image remains; those to the first event have no confirmation.
    void makeJournals(int count) {
        QString error;
        const auto configuration = host::serviceConfiguration(FakePlugInScript::bundlePath(), error);
        ASSERT_TRUE(configuration) << error.toStdString();
        const QString service = host::serviceIdentity(*configuration);
        for (int i = 0; i < count; ++i) {
            host::ExportChoices choices = host::someChoices();
            choices.eventId = QString::number(77 + i % 5);
            const auto journal =
                ExportJournal::create(journals(), service, choices, host::someImages(kImages), {}, error);
            ASSERT_TRUE(journal) << error.toStdString();
            journal->beginAttempt(choices, journal->record().remaining(), state_.path());
            for (int image = 0; image < kImages; ++image)
                journal->imagePrepared(static_cast<std::uint32_t>(image), preparedPath(image));
            for (int image = 0; image < kImages - 1; ++image)
                journal->imageUploaded(preparedPath(image));
            journal->attemptEnded({});
        }
    }
    QString preparedPath(int image) const { return state_.filePath(QStringLiteral("%1.jpg").arg(image)); }
};

} // namespace

TEST_F(ManyJournals, DoNotStopTheWindow) {
    constexpr int kCount = 25;
    // What the first export of a process loads is not the journals' matter.
    selectPictures(2);
    exportToTheSummary();
    summary()->reject();
    ASSERT_NO_FATAL_FAILURE(makeJournals(kCount));

    Heartbeat heartbeat;
    // More often than once, since another program may hold the processors up once.
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(unfinishedExports().size(), kCount);
        exportToTheSummary();
        EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
        summary()->reject();
        unfinishedMenu()->actions().first()->trigger();
        ASSERT_TRUE(waitForSummary());
        EXPECT_EQ(text("headline").toStdString(), "This export is not complete.");
        summary()->reject();
    }
    std::printf("heartbeat: %.1f ms at 99.9 %% of %zu\n", heartbeat.percentile(0.999), heartbeat.count());
    EXPECT_LT(heartbeat.percentile(0.999), kLongestPause);
}
