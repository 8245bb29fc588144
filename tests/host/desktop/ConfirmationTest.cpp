#include "tests/host/desktop/ExportWindow.h"

using test_support::waitUntil;

TEST_F(ExportWindow, AnUnconfirmedExportIsNeverCalledFinishedAndAskedAboutAgain) {
    plugIn_.tell("unanswered");
    selectPictures(2);
    exportToTheSummary();
    const QString all = text("headline") + text("details");
    EXPECT_FALSE(all.contains(QStringLiteral("finished"))) << all.toStdString();
    EXPECT_TRUE(all.contains(QStringLiteral("did not confirm")));
    EXPECT_TRUE(all.contains(QStringLiteral("all 2 photographs")));

    plugIn_.tell("");
    exportAgain("askAgainButton");
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
    // Nothing was sent a second time.
    EXPECT_EQ(logged(QStringLiteral("shouldExport")).toStdString(), "shouldExport 0;shouldExport 1");
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 2);
}

TEST_F(ExportWindow, TheConfirmationIsAskedForWithTheRemainingOnesEvenWhereNoneCanBePrepared) {
    plugIn_.tell("leaves-out=1 unanswered");
    selectPictures(2);
    exportToTheSummary();
    ASSERT_TRUE(text("details").contains(QStringLiteral("Exporting the remaining photographs asks it to")));
    plugIn_.tell("leaves-out=0");
    exportAgain();
    EXPECT_EQ(text("headline").toStdString(), "Some photographs were not exported.");
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 2);
    EXPECT_FALSE(foundJournals().front().record->lacksConfirmation());
}

TEST_F(ExportWindow, TheConfirmationIsAskedForOfTheSameEventAlone) {
    plugIn_.tell("unanswered");
    selectPictures(1);
    exportToTheSummary();
    plugIn_.tell("");
    press(summary(), "askAgainButton");
    exportElsewhere();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export was not begun.")))
        << messages_.texts.first().toStdString();
    EXPECT_EQ(plugIn_.log().count(QStringLiteral("didFinishExport")), 1);
    ASSERT_EQ(foundJournals().size(), 1U);
    EXPECT_TRUE(
        waitUntil([this] { return unfinishedExports().first().contains(QStringLiteral("not confirmed")); }));
}
