// Reading a TIFF's directories, of files that may be anything.

#include "platform/TIFFDirectory.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <random>

using platform::TIFFDirectory;
using test_support::file;
using test_support::patches;

namespace {

QByteArray tiff(const char* writer, const test_support::Color& color) {
    return file(patches({color}, 1, 16), writer);
}

const QByteArray kEmptyDirectory("II*\0\x08\0\0\0\0\0\0\0\0\0", 14);

} // namespace

TEST(TIFFDirectory, TheComponentBehindTheColourIsTold) {
    for (const char* writer : {".tif", ".tif[bigtiff]"}) {
        EXPECT_EQ(TIFFDirectory::read(tiff(writer, {1, 2, 3}))->extraSample,
                  TIFFDirectory::ExtraSample::Untold);
        EXPECT_EQ(TIFFDirectory::read(tiff(writer, {1, 2, 3, 4}))->extraSample,
                  TIFFDirectory::ExtraSample::Alpha);
    }
    QByteArray spot = tiff(".tif", {1, 2, 3, 4});
    spot.replace(QByteArray("\x52\x01\x03\0\x01\0\0\0\x02", 9), QByteArray("\x52\x01\x03\0\x01\0\0\0\0", 9));
    EXPECT_EQ(TIFFDirectory::read(spot)->extraSample, TIFFDirectory::ExtraSample::Unspecified);
}

TEST(TIFFDirectory, BothByteOrdersAreRead) {
    EXPECT_TRUE(TIFFDirectory::read(kEmptyDirectory));
    EXPECT_TRUE(TIFFDirectory::read(QByteArray("MM\0*\0\0\0\x08\0\0\0\0\0\0", 14)));
    const QByteArray extraSamples("MM\0*\0\0\0\x08\0\x01\x01\x52\0\x03\0\0\0\x01\0\x01\0\0\0\0\0\0", 26);
    EXPECT_EQ(TIFFDirectory::read(extraSamples)->extraSample, TIFFDirectory::ExtraSample::Alpha);
}

TEST(TIFFDirectory, ADirectoryBehindTheEndShowsACutOffFile) {
    for (qsizetype size = 0; size < kEmptyDirectory.size(); ++size)
        EXPECT_FALSE(TIFFDirectory::read(kEmptyDirectory.left(size))) << size;
}

TEST(TIFFDirectory, AValueBehindTheEndShowsACutOffFile) {
    // One entry: 100 bytes at position 26.
    const QByteArray whole =
        QByteArray("II*\0\x08\0\0\0\x01\0\x49\x86\x07\0\x64\0\0\0\x1a\0\0\0\0\0\0\0", 26) +
        QByteArray(100, 'p');
    EXPECT_TRUE(TIFFDirectory::read(whole));
    EXPECT_FALSE(TIFFDirectory::read(whole.chopped(1)));
}

TEST(TIFFDirectory, TheNextDirectoriesAreLookedAtToo) {
    QByteArray twoLevels = kEmptyDirectory;
    twoLevels[10] = 14; // The offset of the next one.
    EXPECT_FALSE(TIFFDirectory::read(twoLevels));
    EXPECT_TRUE(TIFFDirectory::read(twoLevels + QByteArray(6, '\0')));
}

TEST(TIFFDirectory, DirectoriesInACircleComeToAnEnd) {
    QByteArray circle = kEmptyDirectory;
    circle[10] = 8;
    EXPECT_TRUE(TIFFDirectory::read(circle));
}

TEST(TIFFDirectory, AnythingMayBeRead) {
    std::mt19937 random(1);
    for (const QByteArray& whole :
         {tiff(".tif", {1, 2, 3, 4}), tiff(".tif[bigtiff,tile,pyramid]", {1, 2, 3})}) {
        for (int round = 0; round < 20'000; ++round) {
            QByteArray damaged = whole.left(whole.size() - qsizetype(random() % 64));
            for (int i = 0; i < 4; ++i)
                damaged[qsizetype(random() % std::size_t(damaged.size()))] = static_cast<char>(random());
            const std::vector<char> exact(damaged.begin(),
                                          damaged.end()); // The sanitizer sees where it ends.
            const auto directory = TIFFDirectory::read(QByteArrayView(exact.data(), qsizetype(exact.size())));
            EXPECT_TRUE(!directory || directory->extraSample <= TIFFDirectory::ExtraSample::Alpha);
        }
    }
}
