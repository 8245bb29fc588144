#include "host/desktop/PictureLoader.h"

#include "host/desktop/CaptureTimeReader.h"
#include "host/desktop/PictureReader.h"
#include "platform/Image.h"
#include "tests/host/desktop/PhotographFolder.h"
#include "tests/support/Pictures.h"
#include "tests/support/Waiting.h"

#include <QtCore/QCoreApplication>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>

using namespace host::desktop;
using test_support::waitUntil;

namespace {

constexpr qsizetype kMebibyte = 1024 * 1024;

class Pictures : public testing::Test {
protected:
    PhotographFolder folder_;
};

class Loader : public Pictures {
protected:
    explicit Loader(qsizetype cacheBytes = 16 * kMebibyte)
        : loader_(kThreads, cacheBytes) {
        QObject::connect(
            &loader_, &PictureLoader::loaded, &loader_, [this](const QByteArray& path, bool readable) {
                (readable ? loaded_ : failed_) << QString::fromUtf8(path).section(QLatin1Char('/'), -1);
            });
    }

    std::vector<QByteArray> pictures(int count) {
        std::vector<QByteArray> paths;
        for (int i = 0; i < count; ++i)
            paths.push_back(folder_.picture(QStringLiteral("%1.png").arg(i), {400, 300}));
        return paths;
    }

    static constexpr int kThreads = 2;
    PictureLoader loader_;
    QStringList loaded_, failed_;
};

class SmallCache : public Loader {
protected:
    SmallCache()
        : Loader(kMebibyte) {}
};

} // namespace

TEST_F(Pictures, ArePutUpright) {
    vips::VImage picture = test_support::patches({{250, 0, 0}, {0, 250, 0}}, 2, 60);
    picture.set(VIPS_META_ORIENTATION, 6); // To be turned by a quarter, clockwise.
    for (const char* format : {".jpg", ".tif"}) {
        const QImage upright = readPicture(
            folder_.file(QStringLiteral("a") + QLatin1String(format), test_support::file(picture, format)),
            1000);
        ASSERT_EQ(upright.size(), QSize(60, 120)) << format;
        EXPECT_GT(upright.pixelColor(30, 30).red(), 200) << format;
        EXPECT_GT(upright.pixelColor(30, 90).green(), 200) << format;
    }
}

TEST_F(Pictures, AreShownInTheColoursOfTheirProfile) {
    // What ProPhoto RGB calls a medium red is far outside of its own numbers in sRGB.
    const auto picture = test_support::withProfile(test_support::patches({{120, 60, 60}}, 1, 64),
                                                   test_support::profileResource("ProPhotoRGB.icc"));
    const QImage shown =
        readPicture(folder_.file(QStringLiteral("a.tif"), test_support::file(picture, ".tif")), 64);
    const QImage plain =
        readPicture(folder_.file(QStringLiteral("b.tif"),
                                 test_support::file(test_support::patches({{120, 60, 60}}, 1, 64), ".tif")),
                    64);
    EXPECT_NEAR(plain.pixelColor(32, 32).red(), 120, 1);
    EXPECT_GT(shown.pixelColor(32, 32).red(), 150);
}

TEST_F(Pictures, FitIntoTheSideAndAreNeverEnlarged) {
    const QByteArray path = folder_.picture(QStringLiteral("a.jpg"), {600, 300});
    EXPECT_EQ(readPicture(path, 200).size(), QSize(200, 100));
    EXPECT_EQ(readPicture(path, 5000).size(), QSize(600, 300));
}

TEST_F(Pictures, ThatTakeMuchMemoryAreDecodedOneAfterTheOther) {
    // Their decoder holds the coefficients of the whole picture, however small the file is.
    const QByteArray path = folder_.file(
        QStringLiteral("a.jpg"), test_support::file(test_support::gradient(5000, 3600), ".jpg[interlace]"));
    std::atomic<int> decoding = 0, most = 0, count = 0;
    const auto read = [&] {
        const QImage picture = readPicture(path, 100, [&] {
            most = std::max<int>(most, ++decoding);
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            --decoding;
            ++count;
        });
        EXPECT_EQ(picture.size(), QSize(100, 72));
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(read);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(count, 3);
    EXPECT_EQ(most, 1);
}

TEST_F(Pictures, ThatTakeLittleMemoryTakeNoRoomFromOthers) {
    const auto picture = test_support::gradient(5000, 3600);
    for (const char* format : {".jpg", ".png"}) {
        const QByteArray path =
            folder_.file(QLatin1Char('a') + QLatin1String(format), test_support::file(picture, format));
        EXPECT_EQ(readPicture(path, 100, [format] { ADD_FAILURE() << format; }).width(), 100);
    }
}

TEST_F(Pictures, OfATIFFThatIsCutOffWhileItIsReadAreUnreadable) {
    const QByteArray bytes = test_support::file(test_support::noise(1000, 1000), ".tif");
    const QByteArray path = folder_.file(QStringLiteral("a.tif"), bytes);
    const auto image = platform::Image::openFile(platform::ImageFile::open(path));
    ASSERT_TRUE(image);
    ASSERT_EQ(truncate(path.constData(), bytes.size() / 2), 0);
    EXPECT_TRUE(image->uprightWithin(100, *platform::ColorSpace::sRGB()).isNull());
}

TEST_F(Pictures, ThatAreCutOffOrNoneAreUnreadable) {
    folder_.picture(QStringLiteral("a.jpg"), {600, 300});
    QFile whole(folder_.filePath(QStringLiteral("a.jpg")));
    ASSERT_TRUE(whole.open(QIODevice::ReadOnly));
    const QByteArray bytes = whole.readAll();
    EXPECT_TRUE(
        readPicture(folder_.file(QStringLiteral("b.jpg"), bytes.left(bytes.size() / 2)), 100).isNull());
    EXPECT_TRUE(readPicture(folder_.file(QStringLiteral("c.jpg"), "no picture"), 100).isNull());
    EXPECT_TRUE(readPicture(folder_.file(QStringLiteral("d.jpg"), ""), 100).isNull());
    const QByteArray tiff = test_support::file(test_support::gradient(600, 300), ".tif");
    EXPECT_FALSE(readPicture(folder_.file(QStringLiteral("f.tif"), tiff), 100).isNull());
    EXPECT_TRUE(readPicture(folder_.file(QStringLiteral("g.tif"), tiff.left(tiff.size() / 2)), 100).isNull());
    EXPECT_TRUE(readPicture(folder_.file(QStringLiteral("h.tif"), tiff.chopped(1)), 100).isNull());
    EXPECT_TRUE(readPicture("/nowhere/e.jpg", 100).isNull());
    EXPECT_TRUE(readPicture(folder_.bytes(), 100).isNull());
}

TEST_F(Pictures, CaptureTimesComeAllAtOnce) {
    vips::VImage picture = test_support::gradient(64, 64);
    picture.set("exif-ifd2-DateTimeOriginal", "2024:06:01 15:04:05");
    const QByteArray a = folder_.file(QStringLiteral("a.jpg"), test_support::file(picture, ".jpg"));
    const QByteArray b = folder_.picture(QStringLiteral("b.jpg"));
    CaptureTimeReader reader;
    CaptureTimeReader::Times times;
    QObject::connect(&reader, &CaptureTimeReader::done, &reader,
                     [&times](const auto& read) { times = read; });
    reader.read({a, b});
    ASSERT_TRUE(waitUntil([&times] { return times.size() == 2; }));
    EXPECT_TRUE(times[0].second.isValid());
    EXPECT_FALSE(times[1].second.isValid());
}

TEST_F(Loader, ItsThreadsAreOfLowPriority) {
    constexpr int kLow = 10;
    const auto lowOnes = [] {
        const QStringList threads =
            QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        return std::count_if(threads.begin(), threads.end(), [](const QString& thread) {
            return getpriority(PRIO_PROCESS, thread.toUInt()) == kLow;
        });
    };
    EXPECT_TRUE(waitUntil([&lowOnes] { return lowOnes() == kThreads; }));
    EXPECT_LT(getpriority(PRIO_PROCESS, 0), kLow) << "this one's";
}

TEST_F(Loader, LoadsWhatIsWantedAndKeepsIt) {
    const auto paths = pictures(3);
    loader_.want(paths, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 3; }));
    EXPECT_EQ(loader_.picture(paths[0]).size(), QSize(128, 96));
    // What is at hand does not come a second time.
    loader_.want({paths[0], folder_.picture(QStringLiteral("last.png"))}, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.contains(QStringLiteral("last.png")); }));
    EXPECT_EQ(loaded_.count(QStringLiteral("0.png")), 1);
}

TEST_F(Loader, LoadsALargerOneAnew) {
    const auto paths = pictures(1);
    loader_.want(paths, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 1; }));
    loader_.want(paths, 256);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 2; }));
    EXPECT_EQ(loader_.picture(paths[0]).width(), 256);
}

TEST_F(Loader, ReadsAnewWhatItHasForgotten) {
    const QByteArray changed = folder_.picture(QStringLiteral("a.png"), {60, 40}, Qt::red);
    const QByteArray mended = folder_.file(QStringLiteral("b.png"), "no picture");
    const QByteArray other = folder_.picture(QStringLiteral("c.png"));
    loader_.want({changed, mended, other}, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() + failed_.size() == 3; }));
    folder_.picture(QStringLiteral("a.png"), {60, 40}, Qt::blue);
    folder_.picture(QStringLiteral("b.png"));
    loader_.forget({changed, mended});
    EXPECT_TRUE(loader_.picture(changed).isNull());
    EXPECT_FALSE(loader_.isUnreadable(mended));
    loader_.want({changed, mended, other}, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 4; }));
    EXPECT_EQ(loader_.picture(changed).pixelColor(0, 0), QColor(Qt::blue));
    EXPECT_FALSE(loader_.picture(mended).isNull());
    EXPECT_EQ(loaded_.count(QStringLiteral("c.png")), 1);
}

TEST_F(Pictures, ThatWereBeingReadWhenTheyWereForgottenAreNotKept) {
    PictureLoader loader(1, 16 * kMebibyte);
    // So large that it takes a while to decode.
    folder_.picture(QStringLiteral("large.png"), {6000, 4000}, Qt::red);
    // One of these moments is in the middle of it.
    for (const int milliseconds : {5, 20, 50, 100, 200}) {
        const QString name = QStringLiteral("%1.png").arg(milliseconds);
        const QByteArray next = folder_.picture(QStringLiteral("next.png"), {60, 40}, Qt::blue);
        ASSERT_TRUE(QFile::copy(folder_.filePath(QStringLiteral("large.png")), folder_.filePath(name)));
        const QByteArray path = QFile::encodeName(folder_.filePath(name));
        loader.want({path}, 128);
        test_support::runLoopFor(std::chrono::milliseconds(milliseconds));
        ASSERT_EQ(rename(next.constData(), path.constData()), 0);
        loader.forget({path});
        loader.want({path}, 128);
        ASSERT_TRUE(waitUntil([&] { return !loader.picture(path).isNull(); }));
        EXPECT_EQ(loader.picture(path).pixelColor(0, 0), QColor(Qt::blue)) << milliseconds;
    }
}

TEST_F(Loader, TellsWhatCannotBeReadOnce) {
    const QByteArray bad = folder_.file(QStringLiteral("bad.jpg"), "no picture");
    loader_.want({bad}, 128);
    ASSERT_TRUE(waitUntil([this] { return !failed_.isEmpty(); }));
    EXPECT_TRUE(loader_.isUnreadable(bad));
    const QByteArray good = folder_.picture(QStringLiteral("good.png"));
    loader_.want({bad, good}, 128);
    ASSERT_TRUE(waitUntil([this] { return !loaded_.isEmpty(); }));
    EXPECT_EQ(failed_.size(), 1);
}

TEST_F(Loader, DropsWhatIsNoLongerWanted) {
    const auto paths = pictures(60);
    loader_.want(paths, 128);
    loader_.want({paths.back()}, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.contains(QStringLiteral("59.png")); }));
    // Only what had begun before may have come too.
    EXPECT_LE(loaded_.size(), 5);
}

TEST_F(SmallCache, StaysWithinItsBoundAndPushesNothingOutThatIsWanted) {
    const auto paths = pictures(40);
    for (int round = 0; round < 4; ++round) {
        const std::vector<QByteArray> screenful(paths.begin() + round * 10, paths.begin() + (round + 1) * 10);
        loader_.want(screenful, 128);
        ASSERT_TRUE(waitUntil([this, &screenful] { return !loader_.picture(screenful.back()).isNull(); }));
        for (const QByteArray& path : screenful)
            EXPECT_TRUE(waitUntil([this, &path] { return !loader_.picture(path).isNull(); }));
        EXPECT_LE(loader_.cachedBytes(), kMebibyte);
    }
    EXPECT_TRUE(loader_.picture(paths.front()).isNull());
}

TEST_F(Loader, GivesBackWhatIsNotWantedWhereALargePictureNeedsRoom) {
    PictureLoader other(1, 64 * kMebibyte);
    std::vector<QByteArray> paths;
    for (int i = 0; i < 12; ++i)
        paths.push_back(folder_.picture(QStringLiteral("%1.png").arg(i), {1000, 800}));
    other.want(paths, 1000); // Of some 3 MiB each.
    ASSERT_TRUE(waitUntil([&] { return other.cachedBytes() > 35 * kMebibyte; }));
    other.want({paths[3]}, 1000);
    const QByteArray large =
        folder_.file(QStringLiteral("large.jpg"),
                     test_support::file(test_support::gradient(5000, 3600), ".jpg[interlace]"));
    loader_.want({large}, 128);
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 1; }));
    EXPECT_LE(other.cachedBytes(), 16 * kMebibyte);
    EXPECT_FALSE(other.picture(paths[3]).isNull());
    // Only for that moment.
    other.want(paths, 1000);
    EXPECT_TRUE(waitUntil([&] { return other.cachedBytes() > 35 * kMebibyte; }));
}

TEST_F(SmallCache, LeavesOutWhatWouldNotFit) {
    const auto paths = pictures(40);
    loader_.want(paths, 256); // Four of them have room.
    ASSERT_TRUE(waitUntil([this] { return loaded_.size() == 4; }));
    loader_.want({folder_.picture(QStringLiteral("last.png"))}, 256);
    ASSERT_TRUE(waitUntil([this] { return loaded_.contains(QStringLiteral("last.png")); }));
    EXPECT_EQ(loaded_.size(), 5);
}

TEST_F(Pictures, ALoaderMayGoInTheMiddle) {
    std::vector<QByteArray> paths;
    for (int i = 0; i < 20; ++i)
        paths.push_back(folder_.picture(QStringLiteral("%1.jpg").arg(i), {800, 600}));
    int told = 0;
    {
        PictureLoader loader(2, kMebibyte);
        QObject::connect(&loader, &PictureLoader::loaded, &loader, [&told] { ++told; });
        loader.want(paths, 64);
        ASSERT_TRUE(waitUntil([&told] { return told > 0; }));
        told = 0;
    }
    QCoreApplication::processEvents();
    EXPECT_EQ(told, 0);
}
