// A further export on the same object: nothing is filled or emptied for it but what its callbacks fill.

#include "tests/ftp/FTPStage.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>

using namespace test_support;
using namespace ftp_tests;

namespace {

const QString kBegun = QStringLiteral("shouldBeginExport");
const QString kCategoryFolder = QStringLiteral("77/Ceremony/");

class SecondExport : public FTPStage {
protected:
    void SetUp() override {
        FTPStage::SetUp();
        // As after construction: no image has been prepared.
        plugIn->ftpPaths.reset();
        plugIn->exportedImagePaths.reset();
        plugIn->exportFTPFolders.reset();
        plugIn->isLoggedIn = true;
        plugIn->setChosenEventId(QStringLiteral("77"));
        plugIn->setChosenCategory(QStringLiteral("Ceremony"));
        plugIn->imageQuality = Quillmark::kBestImageQuality;
    }

    /// The host's export of the images, to the point where it hands over. False: it was told not to begin.
    bool prepare(const QStringList& names) {
        const int begun = host.count(kBegun);
        host.imageCount = static_cast<std::uint32_t>(names.size());
        plugIn->exportManagerShouldBeginExport();
        if (host.count(kBegun) != begun + 1)
            return false;
        plugIn->exportManagerWillBeginExportToPath(plugIn->destinationPath());
        for (qsizetype i = 0; i < names.size(); ++i)
            plugIn->exportManagerShouldWriteImageData(picture, names[i] + QStringLiteral(".tif"),
                                                      static_cast<std::uint32_t>(i));
        return true;
    }

    bool waitForUnanswered(int count) {
        return waitUntil([&] { return host.count(kUnanswered) == count; });
    }

    QString pathOf(const QString& name) const { return plugIn->tempDirectoryPath + name; }

    QStringList foldersToMake() const {
        QStringList folders;
        for (const auto& folder : *plugIn->ftpPaths)
            folders.append(folder.value_or(QString()));
        return folders;
    }

    const QByteArray picture = file(gradient(40, 30), ".png");
};

} // namespace

TEST_F(SecondExport, AfterAFinishedOneSendsItsOwnFilesAndMakesTheirFolderAlone) {
    ASSERT_TRUE(prepare({QStringLiteral("a"), QStringLiteral("b")}));
    EXPECT_EQ(foldersToMake(), QStringList({kEventFolder, kCategoryFolder}));
    finishHandOver();
    ASSERT_TRUE(waitForUnanswered(1));
    EXPECT_EQ(plugIn->numUploaded, 2);
    ASSERT_TRUE(plugIn->ftpPaths && plugIn->exportedImagePaths && plugIn->exportFTPFolders)
        << "used up, not gone";
    EXPECT_TRUE(plugIn->ftpPaths->empty() && plugIn->exportedImagePaths->isEmpty());

    ASSERT_TRUE(prepare({QStringLiteral("c")}));
    EXPECT_EQ(foldersToMake(), QStringList{kCategoryFolder}) << "the event's comes with a new list";
    EXPECT_EQ(*plugIn->exportedImagePaths, QStringList{pathOf(QStringLiteral("c.jpg"))});
    EXPECT_EQ(plugIn->totalBytes, static_cast<std::uint64_t>(QFile(pathOf(QStringLiteral("c.jpg"))).size()));
    EXPECT_EQ(plugIn->numUploaded, 2) << "counted since construction";
    EXPECT_EQ(progress().message, QStringLiteral("Step 1 of 3: Preparing Image 2 of 1..."));
    finishHandOver();
    EXPECT_EQ(progress().totalValue, 1U);
    ASSERT_TRUE(waitForUnanswered(2));
    EXPECT_TRUE(progress().message.startsWith(QStringLiteral("Step 3 of 3: Uploading Image 3 of 1 ... ")))
        << progress().message.toStdString();
    for (const char* const name : {"a.jpg", "b.jpg", "c.jpg"})
        EXPECT_FALSE(uploaded(name).isEmpty()) << name;
    expectNoAlert();
}

TEST_F(SecondExport, AfterABrokenOneBeginsWithWhatThatHasLeft) {
    ASSERT_TRUE(prepare({QStringLiteral("a")}));
    // The user gives up before the host hands over, and the application begins anew all the same.
    plugIn->exportManagerShouldCancelExport();
    EXPECT_EQ(host.count(kCancelled), 1);
    const auto bytesLeft = plugIn->totalBytes;
    ASSERT_GT(bytesLeft, 0U);

    ASSERT_TRUE(prepare({QStringLiteral("b")}));
    EXPECT_EQ(*plugIn->exportedImagePaths,
              QStringList({pathOf(QStringLiteral("a.jpg")), pathOf(QStringLiteral("b.jpg"))}));
    EXPECT_EQ(*plugIn->exportFTPFolders, QStringList({kCategoryFolder, kCategoryFolder}));
    EXPECT_EQ(foldersToMake(), QStringList({kEventFolder, kCategoryFolder}));
    EXPECT_EQ(plugIn->totalBytes, bytesLeft) << "of the second image alone, which is the same";
}

TEST_F(SecondExport, AfterACancelGoesWithoutTheListsAndTheLogin) {
    plugIn->exportManagerShouldCancelExport();
    ASSERT_TRUE(prepare({QStringLiteral("a")}));
    EXPECT_TRUE(plugIn->shouldCancelExport()) << "once cancelled, always cancelled";
    EXPECT_FALSE(plugIn->eventList() || plugIn->categoryList() || plugIn->pricingList() ||
                 plugIn->loginDetails.get());
    EXPECT_TRUE(plugIn->progressWindow && plugIn->progressWindow->isVisible());
    ASSERT_NE(plugIn->progressBarTimer, nullptr);

    finishHandOver();
    ASSERT_TRUE(waitForUnanswered(1));
    EXPECT_FALSE(Quillmark::shouldCancelFTPActivity()) << "each folder begins uncancelled";
    EXPECT_TRUE(server->commands().contains("USER anonymous"));
    expectAlerts({{QStringLiteral("There was an error with your username."), QString()}});
    EXPECT_EQ(host.count(kCancelled), 2) << "the host is asked again, for want of a user";
    EXPECT_FALSE(uploaded("a.jpg").isEmpty()) << "this server lets anybody in";
}
