// What the plug-in makes of each image that the host offers, and what it records for the upload.

#include "platform/Image.h"
#include "tests/plugin/TestBundle.h"
#include "tests/support/Pictures.h"
#include "tests/support/RecordingHost.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <utility>

using test_support::decoded;
using test_support::embeddedProfile;
using test_support::file;
using test_support::gradient;
using test_support::patches;
using test_support::profileResource;
using test_support::RecordingHost;
using test_support::segments;
using test_support::withProfile;

namespace {

constexpr unsigned char kQuantizationTables = 0xDB;

QByteArray contentOf(const QString& path) {
    QFile written(path);
    return written.open(QIODevice::ReadOnly) ? written.readAll() : QByteArray();
}

class ImagePreparation : public testing::Test {
protected:
    ImagePreparation() {
        host.imageCount = 3;
        plugIn = host.makePlugIn();
        plugIn->exportManagerWillBeginExportToPath(folder.path());
        plugIn->setChosenEventId(QStringLiteral("77"));
        plugIn->setChosenCategory(QStringLiteral("Ceremony"));
        plugIn->imageQuality = 12;
        plugIn->exportProgress.currentValue = 1;
        plugIn->exportProgress.totalValue = 3;
    }

    void resizeInto(std::int32_t width, std::int32_t height) {
        plugIn->setDoResizeImages(true);
        plugIn->maxWidthValue = width;
        plugIn->maxHeightValue = height;
    }

    bool offer(const QByteArray& data, const QString& path = QStringLiteral("IMG_0001.tif"),
               std::uint32_t index = 0) {
        return plugIn->exportManagerShouldWriteImageData(data, path, index);
    }

    void setProjects(const QStringList& names) {
        host.properties.clear();
        for (const QString& name : names)
            host.properties.push_back({{QString(hostapi::kExportKeyProjectName), name}});
    }

    QString inFolder(const QString& name) const { return folder.filePath(name); }
    QStringList writtenFiles() const { return QDir(folder.path()).entryList(QDir::Files | QDir::Hidden); }

    /// Width and height of the file that an image of the given size becomes.
    std::pair<int, int> writtenSize(int width, int height) {
        offer(file(gradient(width, height), ".png"));
        const auto image = decoded(contentOf(inFolder(QStringLiteral("IMG_0001.jpg"))));
        return {image.width(), image.height()};
    }

    void expectNothingRecorded() const {
        EXPECT_FALSE(plugIn->exportedImagePaths);
        EXPECT_FALSE(plugIn->exportFTPFolders);
        EXPECT_FALSE(plugIn->ftpPaths);
        EXPECT_EQ(plugIn->totalBytes, 0U);
        EXPECT_EQ(plugIn->exportProgress.currentValue, 1U);
    }

    QStringList foldersToMake() const {
        QStringList folders;
        for (const auto& path : *plugIn->ftpPaths)
            folders.append(path.value_or(QStringLiteral("absent")));
        return folders;
    }

    const QByteArray picture = file(gradient(40, 30), ".png");
    QTemporaryDir folder;
    RecordingHost host;
    std::shared_ptr<Quillmark> plugIn;
};

using Size = std::pair<int, int>;

} // namespace

// --- Size ---

TEST_F(ImagePreparation, ALargeImageIsDrawnIntoTheBox) {
    resizeInto(1280, 1280);
    EXPECT_EQ(writtenSize(2000, 1000), Size(1280, 640));
    EXPECT_EQ(writtenSize(1000, 2000), Size(640, 1280));
}

TEST_F(ImagePreparation, FractionsOfAPixelAreCutOff) {
    resizeInto(1280, 1280);
    EXPECT_EQ(writtenSize(3000, 2000), Size(1280, 853));
}

TEST_F(ImagePreparation, AnImageSmallerThanTheBoxIsEnlarged) {
    resizeInto(2560, 2560);
    EXPECT_EQ(writtenSize(1281, 100), Size(2560, 199));
}

TEST_F(ImagePreparation, ATallImageOfLittleWidthIsResizedToo) {
    resizeInto(1280, 1280);
    EXPECT_EQ(writtenSize(100, 1281), Size(99, 1280));
}

TEST_F(ImagePreparation, AnImageOf1280PixelsOnBothSidesIsNeverResized) {
    resizeInto(2560, 2560);
    EXPECT_EQ(writtenSize(1280, 1280), Size(1280, 1280));
    EXPECT_EQ(writtenSize(640, 480), Size(640, 480));
    resizeInto(300, 300);
    EXPECT_EQ(writtenSize(1280, 1280), Size(1280, 1280));
}

TEST_F(ImagePreparation, TheScaleIsComputedInDoublePrecision) {
    // 2139 x (1280 / 2139) falls short of 1280 by the last bit, and is cut off.
    ASSERT_LT(2139 * (1280 / 2139.0), 1280);
    resizeInto(1280, 1280);
    EXPECT_EQ(writtenSize(2139, 50), Size(1279, 29));
}

TEST_F(ImagePreparation, TheNarrowerSideOfTheBoxDecides) {
    resizeInto(4000, 1300);
    EXPECT_EQ(writtenSize(2000, 2000), Size(1300, 1300));
    resizeInto(1300, 4000);
    EXPECT_EQ(writtenSize(2000, 2000), Size(1300, 1300));
}

TEST_F(ImagePreparation, WithoutResizingTheImageKeepsItsSize) {
    EXPECT_EQ(writtenSize(2000, 1000), Size(2000, 1000));
}

TEST_F(ImagePreparation, AnImageThatIsTooNarrowForTheBoxIsLeftOut) {
    resizeInto(1280, 1280);
    offer(file(gradient(1, 3000), ".png"));
    expectNothingRecorded();
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("imageLeftOut 0")});
}

TEST_F(ImagePreparation, AnyImageInAnyBoxGetsItsSizeToThePixel) {
    constexpr std::uint32_t kSeed = 20080516;
    constexpr int kTriples = 500;
    std::cout << kTriples << " images and boxes of seed " << kSeed << '\n';
    std::mt19937 random(kSeed);
    const auto between = [&](int least, int most) {
        return least + static_cast<int>(random() % static_cast<std::uint32_t>(most - least + 1));
    };
    int resized = 0;
    for (int i = 0; i < kTriples; ++i) {
        // Long and narrow, in part beyond the box: what is computed is the same, and takes little.
        Size size(between(1200, 6000), between(1, 90));
        if (random() % 2)
            std::swap(size.first, size.second);
        const Size box(between(1280, 4000), between(1280, 4000));
        resizeInto(box.first, box.second);

        Size expected = size;
        if (size.first > 1280 || size.second > 1280) {
            const double horizontal = box.first / double(size.first);
            const double vertical = box.second / double(size.second);
            const double scale = horizontal < vertical ? horizontal : vertical;
            expected = Size(int(std::trunc(size.first * scale)), int(std::trunc(size.second * scale)));
            ++resized;
        }
        SCOPED_TRACE("image " + std::to_string(size.first) + " by " + std::to_string(size.second) + ", box " +
                     std::to_string(box.first) + " by " + std::to_string(box.second));
        QFile::remove(inFolder(QStringLiteral("IMG_0001.jpg")));
        if (expected.first == 0 || expected.second == 0) {
            offer(file(gradient(size.first, size.second), ".png[compression=1]"));
            EXPECT_TRUE(writtenFiles().isEmpty());
        } else {
            EXPECT_EQ(writtenSize(size.first, size.second), expected);
        }
    }
    EXPECT_GT(resized, kTriples / 2);
}

// --- Colour and quality ---

TEST_F(ImagePreparation, TheChosenColourSpaceIsAppliedWhenResizing) {
    resizeInto(1280, 1280);
    const QByteArray data =
        file(withProfile(gradient(1400, 100), profileResource("ProPhotoRGB.icc")), ".tif");
    const char* const names[] = {"sRGB.icc", "AdobeRGB1998.icc", "ProPhotoRGB.icc"};
    for (std::size_t i = 0; i < 3; ++i) {
        plugIn->selectedColorspace = plugIn->colorspaceList->at(i).get();
        offer(data);
        EXPECT_EQ(embeddedProfile(contentOf(inFolder(QStringLiteral("IMG_0001.jpg")))),
                  profileResource(names[i]));
    }
}

TEST_F(ImagePreparation, WithoutResizingTheImageKeepsItsColourSpace) {
    resizeInto(1280, 1280);
    plugIn->selectedColorspace = plugIn->colorspaceList->at(1).get();
    offer(file(withProfile(gradient(400, 100), profileResource("ProPhotoRGB.icc")), ".tif"));
    EXPECT_EQ(embeddedProfile(contentOf(inFolder(QStringLiteral("IMG_0001.jpg")))),
              profileResource("ProPhotoRGB.icc"));
    plugIn->setDoResizeImages(false);
    offer(file(gradient(1400, 100), ".tif"));
    EXPECT_TRUE(embeddedProfile(contentOf(inFolder(QStringLiteral("IMG_0001.jpg")))).isEmpty());
}

TEST_F(ImagePreparation, QualityIsCountedInTwelfths) {
    const auto firstQuantizationValue = [&](double quality) {
        plugIn->imageQuality = quality;
        offer(picture);
        for (const auto& segment : segments(contentOf(inFolder(QStringLiteral("IMG_0001.jpg"))))) {
            if (segment.marker == kQuantizationTables)
                return int(static_cast<unsigned char>(segment.payload[1]));
        }
        return -1;
    };
    // What the tables of ITU T.81, annex K, come to at 100, 50 and 8 per cent.
    EXPECT_EQ(firstQuantizationValue(12), 1);
    EXPECT_EQ(firstQuantizationValue(6), 16);
    EXPECT_EQ(firstQuantizationValue(1), 100);
}

TEST_F(ImagePreparation, TheColourSpacesAreSRGBAdobeRGBAndTheBundlesProPhotoRGB) {
    const auto list = plugIn->initColorspaceList();
    ASSERT_EQ(list->size(), 3U);
    EXPECT_EQ(list->at(0)->iccProfile(), profileResource("sRGB.icc"));
    EXPECT_EQ(list->at(1)->iccProfile(), profileResource("AdobeRGB1998.icc"));
    EXPECT_EQ(list->at(2)->iccProfile(), profileResource("ProPhotoRGB.icc"));
}

TEST_F(ImagePreparation, MakingTheColourSpaceListChoosesSRGB) {
    plugIn->selectedColorspace = plugIn->colorspaceList->at(2).get();
    const auto list = plugIn->initColorspaceList();
    EXPECT_EQ(plugIn->selectedColorspace, list->at(0).get());
}

TEST_F(ImagePreparation, TheChoosersActionChangesNothing) {
    plugIn->selectedColorspace = plugIn->colorspaceList->at(1).get();
    plugIn->changeColorspace(nullptr);
    EXPECT_EQ(plugIn->selectedColorspace, plugIn->colorspaceList->at(1).get());
}

TEST_F(ImagePreparation, WithoutAUsableProPhotoProfileThereIsNoListAndNoPlugIn) {
    TestBundle bundle;
    bundle.remove(QStringLiteral("ProPhotoRGB.icc"));
    EXPECT_FALSE(host.makePlugIn(bundle.path()));
    for (const QByteArray& content :
         {QByteArray(), QByteArray("no profile"), profileResource("ProPhotoRGB.icc").left(400)}) {
        bundle.write(QStringLiteral("ProPhotoRGB.icc"), content);
        EXPECT_FALSE(host.makePlugIn(bundle.path()));
    }
    bundle.restore(QStringLiteral("ProPhotoRGB.icc"));
    EXPECT_TRUE(host.makePlugIn(bundle.path()));
}

// --- Names and files ---

TEST_F(ImagePreparation, TheHostIsNeverToldToWriteTheData) {
    EXPECT_FALSE(offer(picture));
    EXPECT_FALSE(offer("no image"));
}

TEST_F(ImagePreparation, TheExtensionBecomesJPG) {
    for (const auto& [name, expected] : QList<std::pair<QString, QString>>{
             {QStringLiteral("IMG_0001.tif"), QStringLiteral("IMG_0001.jpg")},
             {QStringLiteral("IMG_0002"), QStringLiteral("IMG_0002.jpg")},
             {QStringLiteral("a.b.c.png"), QStringLiteral("a.b.c.jpg")},
             {QStringLiteral(".hidden"), QStringLiteral(".hidden.jpg")},
             {QStringLiteral("already.jpg"), QStringLiteral("already.jpg")},
             {QStringLiteral("Größe 50% #1?.tif"), QStringLiteral("Größe 50% #1?.jpg")},
             {QStringLiteral("v1.2/IMG_0003"), QStringLiteral("v1.2/IMG_0003.jpg")}}) {
        offer(picture, name);
        EXPECT_TRUE(QFileInfo::exists(inFolder(expected))) << expected.toStdString();
        EXPECT_EQ(plugIn->exportedImagePaths->last(), inFolder(expected));
    }
}

TEST_F(ImagePreparation, ANameWithAFolderIsWrittenIntoThatFolder) {
    offer(picture, QStringLiteral("2024/May/IMG.tif"));
    EXPECT_FALSE(contentOf(inFolder(QStringLiteral("2024/May/IMG.jpg"))).isEmpty());
}

TEST_F(ImagePreparation, NothingIsWrittenOutsideTheExportFolder) {
    const QString inner = inFolder(QStringLiteral("inner"));
    QDir().mkpath(inner);
    plugIn->exportManagerWillBeginExportToPath(inner);
    const QStringList hostile{QStringLiteral("../escaped.tif"),
                              QStringLiteral("a/../../escaped.tif"),
                              QStringLiteral(".."),
                              QStringLiteral("../"),
                              inFolder(QStringLiteral("escaped.tif")),
                              QStringLiteral("//escaped.tif"),
                              QStringLiteral("a//b.tif"),
                              QStringLiteral("."),
                              QString(),
                              QStringLiteral("folder/"),
                              QStringLiteral("nul") + QChar(u'\0') + QStringLiteral(".tif")};
    for (const QString& path : hostile)
        EXPECT_FALSE(offer(picture, path));
    EXPECT_TRUE(writtenFiles().isEmpty());
    EXPECT_TRUE(QDir(inner).isEmpty());
    expectNothingRecorded();
    EXPECT_EQ(host.count(QStringLiteral("imageLeftOut 0")), hostile.size());
}

TEST_F(ImagePreparation, WithoutAnExportFolderTheImageIsLeftOut) {
    plugIn->exportManagerWillBeginExportToPath(QString());
    offer(picture);
    expectNothingRecorded();
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("imageLeftOut 0")});
}

TEST_F(ImagePreparation, AnExistingFileIsReplacedNotWrittenThrough) {
    const QString elsewhere = inFolder(QStringLiteral("elsewhere.txt"));
    QFile target(elsewhere);
    ASSERT_TRUE(target.open(QIODevice::WriteOnly));
    target.write("keep");
    target.close();
    ASSERT_TRUE(QFile::link(elsewhere, inFolder(QStringLiteral("IMG_0001.jpg"))));
    offer(picture);
    EXPECT_EQ(contentOf(elsewhere), "keep");
    EXPECT_FALSE(QFileInfo(inFolder(QStringLiteral("IMG_0001.jpg"))).isSymLink());
    EXPECT_GT(contentOf(inFolder(QStringLiteral("IMG_0001.jpg"))).size(), 100);
}

TEST_F(ImagePreparation, APathThatIsTooLongIsLeftOut) {
    QStringList components;
    for (int i = 0; i < 41; ++i)
        components.append(QString(99, QLatin1Char('a' + i % 26)));
    offer(picture, components.join(QLatin1Char('/')));
    expectNothingRecorded();
    EXPECT_EQ(host.calls(), QStringList{QStringLiteral("imageLeftOut 0")});
}

// --- What is recorded ---

TEST_F(ImagePreparation, EachFileIsRecordedInOrder) {
    offer(picture, QStringLiteral("a.tif"), 0);
    offer(picture, QStringLiteral("b.tif"), 1);
    const QStringList paths{inFolder(QStringLiteral("a.jpg")), inFolder(QStringLiteral("b.jpg"))};
    EXPECT_EQ(*plugIn->exportedImagePaths, paths);
    EXPECT_EQ(*plugIn->exportFTPFolders, QStringList(2, QStringLiteral("77/Ceremony/")));
    EXPECT_EQ(foldersToMake(), (QStringList{QStringLiteral("77/"), QStringLiteral("77/Ceremony/")}));
    EXPECT_EQ(plugIn->totalBytes, std::uint64_t(contentOf(paths[0]).size() + contentOf(paths[1]).size()));
    EXPECT_EQ(host.calls(),
              (QStringList{QStringLiteral("imagePrepared 0"), QStringLiteral("imagePrepared 1")}));
}

TEST_F(ImagePreparation, TheProgressNamesTheNextImage) {
    offer(picture, QStringLiteral("a.tif"), 0);
    EXPECT_EQ(plugIn->exportProgress.currentValue, 2U);
    EXPECT_EQ(plugIn->exportProgress.message, QStringLiteral("Step 1 of 3: Preparing Image 2 of 3..."));
    offer(picture, QStringLiteral("b.tif"), 1);
    offer(picture, QStringLiteral("c.tif"), 2);
    EXPECT_EQ(plugIn->exportProgress.currentValue, 4U);
    EXPECT_EQ(plugIn->exportProgress.message, QStringLiteral("Step 1 of 3: Preparing Image 4 of 3..."));
    EXPECT_EQ(plugIn->exportProgress.totalValue, 3U);
}

TEST_F(ImagePreparation, TheHostReadsWholeProgressRecordsMeanwhile) {
    constexpr std::uint32_t kImages = 40;
    plugIn->exportProgress.totalValue = kImages;
    std::atomic<bool> isDone{false};
    // On the host's export thread, while the host looks at the record from its own.
    std::jthread exportThread([&] {
        for (std::uint32_t i = 0; i < kImages; ++i)
            offer(picture, QStringLiteral("%1.tif").arg(i), i);
        isDone = true;
    });
    std::size_t last = 1;
    do {
        plugIn->lockProgress();
        const hostapi::ExportProgress copy = *plugIn->progress();
        plugIn->unlockProgress();
        ASSERT_GE(copy.currentValue, last);
        last = copy.currentValue;
        if (copy.currentValue > 1) {
            ASSERT_EQ(copy.message, QStringLiteral("Step 1 of 3: Preparing Image %1 of %2...")
                                        .arg(copy.currentValue)
                                        .arg(copy.totalValue));
        }
    } while (!isDone);
    exportThread.join();
    EXPECT_EQ(plugIn->exportProgress.currentValue, kImages + 1);
    EXPECT_EQ(plugIn->exportedImagePaths->size(), qsizetype(kImages));
}

TEST_F(ImagePreparation, UndecodableDataLeavesListsAndProgressAlone) {
    const QByteArray cutOff = file(gradient(400, 300), ".jpg").left(4000);
    for (const QByteArray& data : {QByteArray(), QByteArray("no image"), cutOff})
        EXPECT_FALSE(offer(data, QStringLiteral("bad.tif"), 2));
    expectNothingRecorded();
    EXPECT_TRUE(writtenFiles().isEmpty());
    EXPECT_EQ(host.calls(), QStringList(3, QStringLiteral("imageLeftOut 2")));
}

TEST_F(ImagePreparation, FoldersNamedAfterProjectsComeInFirstSeenOrder) {
    plugIn->setAutoCreateCategories(true);
    setProjects({QStringLiteral("A"), QStringLiteral("B"), QStringLiteral("A")});
    for (std::uint32_t i = 0; i < 3; ++i)
        offer(picture, QStringLiteral("%1.tif").arg(i), i);
    EXPECT_EQ(foldersToMake(),
              (QStringList{QStringLiteral("77/"), QStringLiteral("77/A/"), QStringLiteral("77/B/")}));
    EXPECT_EQ(*plugIn->exportFTPFolders,
              (QStringList{QStringLiteral("77/A/"), QStringLiteral("77/B/"), QStringLiteral("77/A/")}));
}

TEST_F(ImagePreparation, ProjectsDoNotMatterWithoutAutoCreatedCategories) {
    setProjects({QStringLiteral("A"), QStringLiteral("B")});
    offer(picture, QStringLiteral("a.tif"), 0);
    offer(picture, QStringLiteral("b.tif"), 1);
    EXPECT_EQ(*plugIn->exportFTPFolders, QStringList(2, QStringLiteral("77/Ceremony/")));
}

TEST_F(ImagePreparation, AnImageWithoutAProjectGoesToUntitled) {
    plugIn->setAutoCreateCategories(true);
    setProjects({QStringLiteral("A"), QString(), QStringLiteral("")});
    for (std::uint32_t i = 0; i < 4; ++i)
        offer(picture, QStringLiteral("%1.tif").arg(i), i);
    QStringList folders(4, QStringLiteral("77/Untitled/"));
    folders.front() = QStringLiteral("77/A/");
    EXPECT_EQ(*plugIn->exportFTPFolders, folders) << "an absent name, an empty one, no record at all";
    EXPECT_EQ(foldersToMake(), (QStringList{QStringLiteral("77/"), folders.front(), folders.back()}));
}

TEST_F(ImagePreparation, AProjectsNameIsTheFoldersNameAsItStands) {
    plugIn->setAutoCreateCategories(true);
    for (const QString& name : {QStringLiteral("Smith & Jones #1 – 日本 %41"), QStringLiteral("a/b"),
                                QStringLiteral(".."), QStringLiteral(" "), QStringLiteral("%@"),
                                QStringLiteral("two\r\nlines"), QStringLiteral("untitled")}) {
        setProjects({name});
        offer(picture);
        EXPECT_EQ(plugIn->exportFTPFolders->last(), QStringLiteral("77/") + name + QLatin1Char('/'));
    }
}

TEST_F(ImagePreparation, ACategorysNameIsTheFoldersNameAsItStands) {
    for (const auto& name : {QStringLiteral("a/b %@"), QString()}) {
        plugIn->setChosenCategory(name);
        offer(picture);
        EXPECT_EQ(plugIn->exportFTPFolders->last(), QStringLiteral("77/") + name + QLatin1Char('/'));
    }
    plugIn->setChosenCategory(std::nullopt);
    offer(picture);
    EXPECT_EQ(plugIn->exportFTPFolders->last(), QStringLiteral("77/(null)/"));
}

TEST_F(ImagePreparation, AnAbsentEventReadsAsSuch) {
    plugIn->setChosenEventId(std::nullopt);
    offer(picture);
    EXPECT_EQ(foldersToMake(), (QStringList{QStringLiteral("(null)/"), QStringLiteral("(null)/Ceremony/")}));
}

TEST_F(ImagePreparation, AnImmenseImageCountIsNoReasonToFail) {
    host.imageCount = 0xFFFFFFFF;
    offer(picture);
    EXPECT_EQ(plugIn->exportedImagePaths->size(), 1);
}

TEST_F(ImagePreparation, ACancelledExportStillPreparesWhatIsOffered) {
    plugIn->setShouldCancelExport(true);
    offer(picture);
    EXPECT_EQ(plugIn->exportedImagePaths->size(), 1);
}

// --- Files that can't be written ---

TEST_F(ImagePreparation, AFileThatCannotBeWrittenIsRecordedWithoutSize) {
    // A folder in the file's place, and not an empty one.
    QDir().mkpath(inFolder(QStringLiteral("IMG_0001.jpg/inside")));
    offer(picture);
    EXPECT_EQ(*plugIn->exportedImagePaths, QStringList{inFolder(QStringLiteral("IMG_0001.jpg"))});
    EXPECT_EQ(*plugIn->exportFTPFolders, QStringList{QStringLiteral("77/Ceremony/")});
    EXPECT_EQ(plugIn->exportProgress.currentValue, 2U);
    EXPECT_TRUE(host.calls().isEmpty()) << "neither prepared nor left out";
}

TEST_F(ImagePreparation, AFullDiskLeavesNoPartOfAFile) {
    const QByteArray large = file(test_support::noise(600, 400), ".png");
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit little{20'000, before.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &little);
    offer(large);
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);

    EXPECT_TRUE(writtenFiles().isEmpty());
    EXPECT_EQ(plugIn->totalBytes, 0U);
    EXPECT_EQ(*plugIn->exportedImagePaths, QStringList{inFolder(QStringLiteral("IMG_0001.jpg"))});
    EXPECT_TRUE(host.calls().isEmpty());
}

// --- Utilities ---

TEST_F(ImagePreparation, AFileURLBecomesItsPath) {
    EXPECT_EQ(plugIn->fileSystemStringOfPath(QUrl::fromLocalFile(QStringLiteral("/a b/100%/#1?.jpg"))),
              QStringLiteral("/a b/100%/#1?.jpg"));
    EXPECT_EQ(plugIn->fileSystemStringOfPath(QUrl()), std::nullopt);
    EXPECT_EQ(plugIn->fileSystemStringOfPath(QUrl(QStringLiteral("https://www.quillmark.example/a"))),
              std::nullopt);
}

TEST_F(ImagePreparation, APathMustFitInto4096BytesWithItsEnd) {
    const auto pathOf = [&](int bytes) {
        return plugIn->fileSystemStringOfPath(
            QUrl::fromLocalFile(QLatin1Char('/') + QString(bytes - 1, QLatin1Char('a'))));
    };
    EXPECT_EQ(pathOf(4095)->size(), 4095);
    EXPECT_EQ(pathOf(4096), std::nullopt);
    const QString twoBytesEach = QLatin1Char('/') + QString(2048, QChar(u'ü'));
    EXPECT_EQ(plugIn->fileSystemStringOfPath(QUrl::fromLocalFile(twoBytesEach)), std::nullopt);
}

TEST_F(ImagePreparation, TheSizeOfAFileThatIsNotThereIsZero) {
    QFile some(inFolder(QStringLiteral("some")));
    ASSERT_TRUE(some.open(QIODevice::WriteOnly));
    some.write("12345");
    some.close();
    EXPECT_EQ(plugIn->sizeOfFileAtPath(QUrl::fromLocalFile(some.fileName())), 5U);
    EXPECT_EQ(plugIn->sizeOfFileAtPath(QUrl::fromLocalFile(inFolder(QStringLiteral("none")))), 0U);
    EXPECT_EQ(plugIn->sizeOfFileAtPath(QUrl()), 0U);
}
