#include "tests/host/desktop/ExportWindow.h"
#include "tests/support/ThreadShortage.h"

using test_support::waitUntil;

TEST_F(ExportWindow, APlugInThatCannotBeMadeIsSaid) {
    plugIn_.tell("unmakable");
    selectPictures(1);
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().contains(QStringLiteral("it does not want to be made")));
    plugIn_.tell("");
    action("Export to Quillmark")->trigger();
    EXPECT_TRUE(waitForDialog());
}

TEST_F(ExportWindow, APlugInThatWantsWhatTheApplicationHasNotIsSaid) {
    selectPictures(1);
    for (const char* const wish : {"masters-only", "wants-names", "wants-folder"}) {
        messages_.texts.clear();
        plugIn_.tell(wish);
        action("Export to Quillmark")->trigger();
        ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); })) << wish;
        EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export plug-in cannot be used.")))
            << wish;
        EXPECT_FALSE(exportDialog()) << wish;
        EXPECT_EQ(plugIn_.log().mid(plugIn_.log().size() - 4),
                  (QStringList{QStringLiteral("defaultDirectory"), QStringLiteral("shouldCancelExport"),
                               QStringLiteral("willBeDeactivated"), QStringLiteral("destroyed")}))
            << wish;
    }
}

TEST_F(ExportWindow, WithoutAJournalNothingIsExported) {
    QFile inTheWay(journals());
    ASSERT_TRUE(inTheWay.open(QIODevice::WriteOnly));
    selectPictures(1);
    beginExport();
    ASSERT_TRUE(waitUntil([this] { return !messages_.texts.isEmpty(); }));
    EXPECT_TRUE(messages_.texts.first().startsWith(QStringLiteral("The export was not begun.")));
    EXPECT_TRUE(logged(QStringLiteral("shouldExport")).isEmpty());
    EXPECT_TRUE(plugIn_.log().contains(QStringLiteral("shouldCancelExport")));
}

TEST_F(ExportWindow, WithoutAThreadForTheImagesTheExportFailsAndCanBeGoneOnWith) {
    selectPictures(2);
    // The light table has done its work.
    ASSERT_TRUE(waitUntil([this] { return isLoaded(0) && isLoaded(1); }));
    action("Export to Quillmark")->trigger();
    ASSERT_TRUE(waitForDialog());
    logIn();
    choose(0, QStringLiteral("Ceremony"));
    {
        const test_support::ThreadShortage shortage;
        press(exportDialog(), "exportButton");
        ASSERT_TRUE(waitForSummary());
    }
    EXPECT_EQ(text("headline").toStdString(), "The export failed.");
    EXPECT_TRUE(text("details").startsWith(QStringLiteral("The system has no thread left")))
        << text("details").toStdString();
    exportAgain();
    EXPECT_EQ(text("headline").toStdString(), "The export is finished.");
}
