// How the plug-in object comes to be, what it is then, and how it ends.

#include "platform/RunLoop.h"
#include "platform/TemporaryFolder.h"
#include "tests/plugin/TestBundle.h"
#include "tests/support/RecordingHost.h"
#include "tests/support/Waiting.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <gtest/gtest.h>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

using test_support::RecordingHost;
using test_support::waitUntil;

namespace {

QString temporaryFolderOfThePlugIn() {
    return platform::temporaryFolder() + QStringLiteral("/Quillmark");
}

void write(const QString& path, const QByteArray& content = "content") {
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
    file.write(content);
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

ino_t inodeOf(const QString& path) {
    struct stat found {};
    return stat(QFile::encodeName(path).constData(), &found) == 0 ? found.st_ino : 0;
}

/// The superuser may write anywhere: without that right, permissions count as they do for any user.
class AsAnyUser {
public:
    AsAnyUser() {
        syscall(SYS_capget, &header_, before_);
        __user_cap_data_struct without[2] = {before_[0], before_[1]};
        without[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH | 1U << CAP_FOWNER);
        syscall(SYS_capset, &header_, without);
    }
    ~AsAnyUser() { syscall(SYS_capset, &header_, before_); }
    AsAnyUser(const AsAnyUser&) = delete;
    AsAnyUser& operator=(const AsAnyUser&) = delete;

private:
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct before_[2]{};
};

class Construction : public testing::Test {
protected:
    RecordingHost host;
};

/// The emptying of the folder, which a test fills first.
class TemporaryFolder : public Construction {
protected:
    TemporaryFolder() {
        std::filesystem::remove_all(folder.toStdString());
        QDir().mkpath(platform::temporaryFolder());
    }
    ~TemporaryFolder() override { std::filesystem::remove_all(folder.toStdString()); }

    const QString folder = temporaryFolderOfThePlugIn();
};

} // namespace

TEST_F(Construction, WithoutAnAPIManagerThereIsNoObject) {
    QString error;
    EXPECT_EQ(Quillmark::initWithAPIManager(nullptr, RecordingHost::defaultBundlePath(), &error), nullptr);
    EXPECT_FALSE(error.isEmpty());
}

TEST_F(Construction, WithoutAnExportManagerThereIsNoObject) {
    host.offersExportManager = false;
    QString error;
    EXPECT_EQ(host.makePlugIn(RecordingHost::defaultBundlePath(), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("export manager"))) << error.toStdString();
    EXPECT_EQ(host.makePlugIn(), nullptr) << "nobody needs to ask for the reason";
}

TEST_F(Construction, WithoutTheColourProfileThereIsNoObject) {
    TestBundle bundle;
    bundle.remove(QStringLiteral("ProPhotoRGB.icc"));
    QString error;
    EXPECT_EQ(host.makePlugIn(bundle.path(), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("ProPhotoRGB"))) << error.toStdString();
    EXPECT_TRUE(error.contains(bundle.path())) << error.toStdString();
}

TEST_F(Construction, WithAColourProfileThatIsNoneThereIsNoObject) {
    TestBundle bundle;
    bundle.write(QStringLiteral("ProPhotoRGB.icc"), "no profile");
    QString error;
    EXPECT_EQ(host.makePlugIn(bundle.path(), &error), nullptr);
    EXPECT_TRUE(error.contains(QStringLiteral("ProPhotoRGB"))) << error.toStdString();
}

TEST_F(Construction, WithoutTheServicesConfigurationThereIsNoObject) {
    const QString missing = QDir::tempPath() + QStringLiteral("/no-such-service.ini");
    qputenv("QUILLMARK_SERVICE_CONFIG", QFile::encodeName(missing));
    QString error;
    EXPECT_EQ(Quillmark::initWithAPIManager(&host, RecordingHost::defaultBundlePath(), &error), nullptr);
    EXPECT_TRUE(error.contains(missing)) << error.toStdString();
}

TEST_F(Construction, KeepsTheHostsManagers) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(plugIn->_apiManager, &host);
    host.imageCount = 42;
    EXPECT_EQ(plugIn->_exportManager->imageCount(), 42U);
    EXPECT_EQ(plugIn->mainBundle->path(), RecordingHost::defaultBundlePath());
}

TEST_F(Construction, StartsWithEmptyListsAndAnEmptyLoginRecord) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    for (const auto& list : {plugIn->eventList(), plugIn->categoryList(), plugIn->pricingList()}) {
        ASSERT_NE(list, nullptr);
        EXPECT_TRUE(list->empty());
    }
    ASSERT_NE(plugIn->loginDetails.get(), nullptr);
    EXPECT_TRUE(plugIn->loginDetails.get()->texts().isEmpty());
    EXPECT_TRUE(plugIn->remoteDirectoryContents.isEmpty());
}

TEST_F(Construction, OffersThreeColourSpacesAndSelectsTheFirst) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    ASSERT_NE(plugIn->colorspaceList, nullptr);
    ASSERT_EQ(plugIn->colorspaceList->size(), 3U);
    EXPECT_EQ(plugIn->selectedColorspace, plugIn->colorspaceList->front().get());
}

TEST_F(Construction, StartsWithItsControlsHiddenAndNothingChosen) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_TRUE(plugIn->hideEventControls());
    EXPECT_TRUE(plugIn->hidePricingControls());
    EXPECT_FALSE(plugIn->autoCreateCategories());
    EXPECT_FALSE(plugIn->shouldCancelExport());
    EXPECT_FALSE(plugIn->threadLaunched());
    EXPECT_FALSE(plugIn->isLoggedIn);
    EXPECT_FALSE(plugIn->hiResUploads);
    EXPECT_FALSE(plugIn->doResizeImages());
    EXPECT_EQ(plugIn->imageQuality, 1.0);
    EXPECT_EQ(plugIn->numUploaded, 0);
    EXPECT_EQ(plugIn->totalBytes, 0U);
    EXPECT_EQ(plugIn->maxWidthValue, 0);
    EXPECT_EQ(plugIn->maxHeightValue, 0);
    EXPECT_FALSE(plugIn->chosenEvent().has_value());
    EXPECT_FALSE(plugIn->chosenEventId().has_value());
    EXPECT_FALSE(plugIn->chosenPricingId().has_value());
    EXPECT_FALSE(plugIn->chosenCategory().has_value());
    EXPECT_EQ(plugIn->exportedImagePaths, nullptr);
    EXPECT_EQ(plugIn->exportFTPFolders, nullptr);
    EXPECT_EQ(plugIn->ftpPaths, nullptr);
    EXPECT_EQ(plugIn->progressBarTimer, nullptr);
    EXPECT_FALSE(plugIn->uploadStartTime.has_value());
}

TEST_F(Construction, StartsWithAnEmptyProgressRecord) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(plugIn->progress(), &plugIn->exportProgress);
    EXPECT_EQ(plugIn->progress()->currentValue, 0U);
    EXPECT_EQ(plugIn->progress()->totalValue, 0U);
    EXPECT_TRUE(plugIn->progress()->message.isNull());
    EXPECT_FALSE(plugIn->progress()->indeterminateProgress);
}

TEST_F(Construction, LoadsNoInterfaceAndReadsNoDefault) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(plugIn->settingsView_, nullptr);
    EXPECT_EQ(plugIn->progressWindow, nullptr);
    EXPECT_EQ(plugIn->firstView(), nullptr);
    EXPECT_EQ(plugIn->lastView(), nullptr);
    EXPECT_EQ(host.defaultsRead(), 0);
    EXPECT_TRUE(host.calls().isEmpty());
}

TEST_F(Construction, TheFixedQuestionsHaveTheirAnswers) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_TRUE(plugIn->allowsOnlyPlugInPresets());
    EXPECT_FALSE(plugIn->allowsMasterExport());
    EXPECT_TRUE(plugIn->allowsVersionExport());
    EXPECT_FALSE(plugIn->wantsFileNamingControls());
    EXPECT_FALSE(plugIn->wantsDestinationPathPrompt());
    EXPECT_EQ(plugIn->destinationPath(), temporaryFolderOfThePlugIn() + QLatin1Char('/'));
    EXPECT_EQ(plugIn->destinationPath(), plugIn->tempDirectoryPath);
    EXPECT_FALSE(plugIn->defaultDirectory().has_value());
}

TEST_F(Construction, EveryImageIsToBeExportedAlsoPastTheLast) {
    host.imageCount = 2;
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    for (const std::uint32_t index : {0U, 1U, 2U, 1000U, 0xffffffffU})
        EXPECT_TRUE(plugIn->exportManagerShouldExportImageAtIndex(index)) << index;
}

TEST_F(Construction, TheCallbacksWithoutAnActionChangeNothing) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    plugIn->exportManagerExportTypeDidChange();
    plugIn->exportManagerWillExportImageAtIndex(0);
    plugIn->exportManagerDidWriteImageDataToRelativePath(QStringLiteral("a.jpg"), 0);
    plugIn->willBeDeactivated();
    EXPECT_TRUE(host.calls().isEmpty());
    EXPECT_EQ(plugIn->exportedImagePaths, nullptr);
    EXPECT_TRUE(plugIn->progress()->message.isNull());
}

TEST_F(Construction, TheProgressLockIsMadeWhereItIsMissing) {
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    ASSERT_NE(plugIn->_progressLock, nullptr);
    plugIn->_progressLock.reset();
    plugIn->lockProgress();
    ASSERT_NE(plugIn->_progressLock, nullptr);
    bool wasFree = true;
    std::thread([&] { wasFree = plugIn->_progressLock->try_lock(); }).join();
    EXPECT_FALSE(wasFree);
    plugIn->unlockProgress();
    std::thread([&] {
        wasFree = plugIn->_progressLock->try_lock();
        if (wasFree)
            plugIn->_progressLock->unlock();
    }).join();
    EXPECT_TRUE(wasFree);
}

TEST_F(TemporaryFolder, IsMadeWhereThereIsNone) {
    ASSERT_FALSE(QFile::exists(folder));
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_TRUE(QDir(folder).exists());
    EXPECT_TRUE(entriesOf(folder).isEmpty());
}

TEST_F(TemporaryFolder, LosesEveryEntryOfAnEarlierRun) {
    QDir().mkpath(folder + QStringLiteral("/nested/deeper"));
    write(folder + QStringLiteral("/IMG_0001.jpg"));
    write(folder + QStringLiteral("/.hidden"));
    write(folder + QStringLiteral("/nested/deeper/IMG_0002.jpg"));
    const ino_t before = inodeOf(folder);
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(inodeOf(folder), before) << "the folder itself is kept";
    EXPECT_EQ(entriesOf(folder), QStringList());
}

TEST_F(TemporaryFolder, ALinkInItIsDeletedAndNotFollowed) {
    const QTemporaryDir elsewhere;
    const QString precious = elsewhere.filePath(QStringLiteral("precious"));
    write(precious);
    QDir().mkpath(folder + QStringLiteral("/nested"));
    std::filesystem::create_symlink(elsewhere.path().toStdString(),
                                    (folder + QStringLiteral("/out")).toStdString());
    std::filesystem::create_symlink(elsewhere.path().toStdString(),
                                    (folder + QStringLiteral("/nested/out")).toStdString());
    std::filesystem::create_symlink(precious.toStdString(), (folder + QStringLiteral("/file")).toStdString());
    std::filesystem::create_symlink("/nowhere/at/all", (folder + QStringLiteral("/dangling")).toStdString());
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_EQ(entriesOf(folder), QStringList());
    EXPECT_TRUE(QFile::exists(precious));
}

TEST_F(TemporaryFolder, APlainFileInItsPlaceIsReplaced) {
    write(folder);
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_EQ(entriesOf(folder), QStringList());
}

TEST_F(TemporaryFolder, ALinkInItsPlaceIsReplacedAndNotFollowed) {
    const QTemporaryDir elsewhere;
    const QString precious = elsewhere.filePath(QStringLiteral("precious"));
    write(precious);
    std::filesystem::create_symlink(elsewhere.path().toStdString(), folder.toStdString());
    const auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    EXPECT_FALSE(QFileInfo(folder).isSymLink());
    EXPECT_TRUE(QFileInfo(folder).isDir());
    EXPECT_TRUE(QFile::exists(precious));
}

TEST_F(TemporaryFolder, WhatCannotBeDeletedStaysAndTheRestGoes) {
    QDir().mkpath(folder + QStringLiteral("/locked"));
    write(folder + QStringLiteral("/locked/IMG_0001.jpg"));
    write(folder + QStringLiteral("/IMG_0002.jpg"));
    write(folder + QStringLiteral("/zzz"));
    const QString locked = folder + QStringLiteral("/locked");
    ASSERT_TRUE(QFile::setPermissions(locked, QFile::ReadOwner | QFile::ExeOwner));
    {
        const AsAnyUser permissionsCount;
        EXPECT_NE(host.makePlugIn(), nullptr);
    }
    EXPECT_EQ(entriesOf(folder), QStringList{QStringLiteral("locked")});
    EXPECT_EQ(entriesOf(locked), QStringList{QStringLiteral("IMG_0001.jpg")});
    QFile::setPermissions(locked, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

TEST_F(TemporaryFolder, ThatCannotBeMadeOrReadIsNoReasonToFail) {
    const QString parent = platform::temporaryFolder();
    const auto lock = [&](QFile::Permissions permissions) {
        ASSERT_TRUE(QFile::setPermissions(parent, permissions));
    };
    for (const bool isThere : {false, true}) {
        if (isThere)
            QDir().mkpath(folder);
        lock(isThere ? QFile::Permissions() : QFile::ReadOwner | QFile::ExeOwner);
        {
            const AsAnyUser permissionsCount;
            EXPECT_NE(host.makePlugIn(), nullptr);
        }
        lock(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        EXPECT_EQ(QFile::exists(folder), isThere);
    }
}

TEST_F(TemporaryFolder, StaysAsItIsWhereTheObjectCannotBeMade) {
    QDir().mkpath(folder);
    write(folder + QStringLiteral("/IMG_0001.jpg"));
    TestBundle bundle;
    bundle.remove(QStringLiteral("ProPhotoRGB.icc"));
    EXPECT_EQ(host.makePlugIn(bundle.path()), nullptr);
    EXPECT_EQ(entriesOf(folder), QStringList{QStringLiteral("IMG_0001.jpg")});
}

TEST_F(Construction, TheLastReferenceOnAnotherThreadEndsTheObjectOnTheMainThread) {
    auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    QThread* endedOn = nullptr;
    QObject::connect(plugIn.get(), &QObject::destroyed, [&] { endedOn = QThread::currentThread(); });
    std::thread([last = std::move(plugIn)] {}).join();
    EXPECT_EQ(endedOn, nullptr);
    ASSERT_TRUE(waitUntil([&] { return endedOn != nullptr; }));
    EXPECT_EQ(endedOn, QCoreApplication::instance()->thread());
}

TEST_F(Construction, TheLastReferenceOnTheMainThreadEndsTheObjectAtOnce) {
    auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    const std::weak_ptr<Quillmark> weak = plugIn;
    bool ended = false;
    QObject::connect(plugIn.get(), &QObject::destroyed, [&] { ended = true; });
    plugIn.reset();
    EXPECT_TRUE(ended);
    EXPECT_TRUE(weak.expired());
}

TEST_F(Construction, AViewThatNobodyHoldsEndsWithTheObject) {
    auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    const QPointer<QWidget> view = plugIn->settingsView();
    ASSERT_NE(view, nullptr);
    plugIn.reset();
    EXPECT_TRUE(waitUntil([&] { return view.isNull(); }));
}

TEST_F(Construction, AViewInAWindowOfTheHostStaysThereAndPressingItDoesNothing) {
    QWidget window;
    auto plugIn = host.makePlugIn();
    ASSERT_NE(plugIn, nullptr);
    const QPointer<QWidget> view = plugIn->settingsView();
    ASSERT_NE(view, nullptr);
    view->setParent(&window);
    const QPointer<QPushButton> button = plugIn->loginButton;
    const QPointer<QSlider> slider = plugIn->qualitySlider;
    plugIn.reset();
    test_support::runLoopFor(std::chrono::milliseconds(20));
    ASSERT_FALSE(view.isNull());
    button->click();
    slider->setValue(0);
}
