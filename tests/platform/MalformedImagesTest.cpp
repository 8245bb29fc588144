// Image data that is damaged, or made to do harm: never a crash, a hang, or more memory than a machine has to
// spare. A program of its own: the high-water mark of memory is the whole process's.

#include "platform/Image.h"
#include "platform/JPEGSegments.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <array>
#include <ctime>
#include <iostream>
#include <random>
#include <string_view>
#include <utility>

using platform::ColorSpace;
using platform::Image;
using test_support::file;
using test_support::gradient;
using vips::VImage;

namespace {

constexpr double kBest = 1.0;
constexpr std::uint32_t kSeed = 20080515;
constexpr int kMutationsOfEach = 50;
constexpr double kLongestSeconds = 5;
constexpr long kMostKilobytes = 1024 * 1024;

/// Of every kind of file that is decoded.
constexpr std::array kWriters{".jpg[Q=90]",
                              ".jpg[Q=90,interlace]",
                              ".jpg[Q=80,subsample_mode=on,restart_interval=2]",
                              ".png",
                              ".png[interlace]",
                              ".png[palette]",
                              ".png[bitdepth=1]",
                              ".tif",
                              ".tif[compression=lzw,predictor=horizontal]",
                              ".tif[compression=deflate,tile]",
                              ".tif[compression=jpeg]",
                              ".tif[compression=packbits]",
                              ".tif[compression=ccittfax4,bitdepth=1]",
                              ".tif[bigtiff,tile,pyramid]",
                              ".webp[Q=80]",
                              ".webp[lossless]",
                              ".heic",
                              ".heic[lossless]",
                              ".avif[compression=av1,speed=9]",
                              ".avif[compression=av1,lossless,speed=9]"};

/// CPU time: what else the machine does is no hang.
double secondsUsed() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

long peakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// As the plug-in treats what its host offers; whether something came out.
bool isPrepared(const QByteArray& data) {
    const auto image = Image::open(data);
    if (!image)
        return false;
    const bool isScaled = image->scaledJPEG(20, 15, *ColorSpace::sRGB(), kBest).has_value();
    return image->asJPEG(kBest).has_value() || isScaled;
}

/// A PNG that states a size and has no pixels.
QByteArray emptyPNG(quint32 width, quint32 height, const char* writer) {
    QByteArray png = file(gradient(8, 8), writer);
    qToBigEndian(width, png.data() + 16);
    qToBigEndian(height, png.data() + 20);
    quint32 crc = ~0U;
    for (const char byte : png.mid(12, 17)) {
        crc ^= static_cast<unsigned char>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (crc & 1 ? 0xEDB88320U : 0U);
    }
    qToBigEndian(~crc, png.data() + 29);
    return png;
}

/// A small JPEG that states another size.
QByteArray jpegOfSize(quint16 width, quint16 height, const char* writer) {
    QByteArray jpeg = file(gradient(40, 30), writer);
    const qsizetype frame = std::max(jpeg.indexOf("\xFF\xC0"), jpeg.indexOf("\xFF\xC2"));
    qToBigEndian(height, jpeg.data() + frame + 5);
    qToBigEndian(width, jpeg.data() + frame + 7);
    return jpeg;
}

/// Replaces a 32-bit number that stands in the file once, or more often.
QByteArray withNumber(QByteArray data, const QByteArray& before, quint32 number, bool isBigEndian) {
    QByteArray bytes(4, '\0');
    if (isBigEndian)
        qToBigEndian(number, bytes.data());
    else
        qToLittleEndian(number, bytes.data());
    qsizetype at = 0;
    int count = 0;
    for (; (at = data.indexOf(before, at)) >= 0; at += before.size(), ++count)
        data.replace(at + before.size(), bytes.size(), bytes);
    EXPECT_GT(count, 0);
    return data;
}

/// The spatial extents of a HEIF (ISO 23008-12, 6.5.3) stand behind the box's type, version and flags.
QByteArray heifOfSize(quint32 width, quint32 height, const char* writer) {
    QByteArray data = file(gradient(64, 64), writer);
    const QByteArray extents("ispe\0\0\0\0", 8);
    QByteArray widthBytes(4, '\0');
    qToBigEndian(width, widthBytes.data());
    data = withNumber(data, extents, width, true);
    return withNumber(data, extents + widthBytes, height, true);
}

/// The width and height of a small TIFF are one SHORT each, in entries of twelve bytes: tag, type, count,
/// value.
QByteArray tiffOfSize(quint32 width, quint32 height, const char* writer) {
    QByteArray data = file(gradient(40, 30), writer);
    const auto setEntry = [&](const char* beginning, quint32 value) {
        const qsizetype entry = data.indexOf(QByteArray::fromHex(beginning));
        ASSERT_GE(entry, 0);
        data[entry + 2] = '\4'; // LONG.
        qToLittleEndian(value, data.data() + entry + 8);
    };
    setEntry("000103000100000028000000", width);
    setEntry("01010300010000001e000000", height);
    return data;
}

using Random = std::mt19937;

qsizetype below(Random& random, qsizetype bound) {
    return static_cast<qsizetype>(random() % static_cast<std::uint32_t>(bound));
}

/// Half of the damage goes into the first bytes, where sizes and offsets stand.
qsizetype position(Random& random, const QByteArray& data) {
    constexpr qsizetype kHeader = 200;
    return below(random, random() % 2 ? data.size() : std::min(data.size(), kHeader));
}

char hostileByte(Random& random) {
    constexpr std::array kExtremes{'\x00', '\x01', '\x7F', '\x80', '\xFF'};
    return random() % 2 ? kExtremes[random() % kExtremes.size()] : static_cast<char>(random());
}

/// Bytes changed, runs overwritten, pieces cut out, doubled, moved; never what it was.
QByteArray mutated(const QByteArray& original, Random& random) {
    QByteArray data = original;
    do {
        const auto count = 1 + below(random, 8);
        for (qsizetype i = 0; i < count; ++i) {
            const qsizetype at = position(random, data);
            const qsizetype length = 1 + below(random, std::min<qsizetype>(64, data.size() - at));
            switch (random() % 6) {
            case 0:
            case 1:
                data[at] = hostileByte(random);
                break;
            case 2:
                data.replace(at, length, QByteArray(length, hostileByte(random)));
                break;
            case 3:
                if (data.size() > 2 * length)
                    data.remove(at, length);
                break;
            case 4:
                data.insert(at, data.mid(position(random, data), length));
                break;
            default:
                data[at] = static_cast<char>(data[at] ^ (1 << random() % 8));
                break;
            }
        }
    } while (data == original);
    return data;
}

} // namespace

TEST(MalformedImages, NeverCrashHangOrTakeMoreThanAGigabyte) {
    Random random(kSeed);
    const VImage picture = gradient(90, 60);
    int count = 0;
    int prepared = 0;
    double longest = 0;
    for (const char* writer : kWriters) {
        const bool isFax = std::string_view(writer).find("ccitt") != std::string_view::npos;
        const QByteArray original = file(isFax ? picture.extract_band(0) : picture, writer);
        ASSERT_TRUE(isPrepared(original)) << writer;
        for (int i = 0; i < kMutationsOfEach; ++i) {
            const QByteArray data = mutated(original, random);
            const double start = secondsUsed();
            prepared += isPrepared(data);
            const double taken = secondsUsed() - start;
            longest = std::max(longest, taken);
            ++count;
            ASSERT_LT(taken, kLongestSeconds) << writer << ", mutation " << i << " of seed " << kSeed;
            ASSERT_LT(peakKilobytes(), kMostKilobytes)
                << writer << ", mutation " << i << " of seed " << kSeed;
        }
    }
    std::cout << count << " images of seed " << kSeed << ", " << prepared << " prepared, at most " << longest
              << " s each, " << peakKilobytes() / 1024 << " MiB at the peak\n";
    EXPECT_GE(count, 1000);
    EXPECT_LT(prepared, count) << "some damage is noticed";
}

TEST(MalformedImages, DamageIsNoticedWhicheverThreadMeetsIt) {
    QFile damaged(QStringLiteral(QUILLMARK_SOURCE_DIR "/tests/fuzz/corpus/image/damaged-restarts.jpg"));
    ASSERT_TRUE(damaged.open(QIODevice::ReadOnly));
    const auto image = Image::open(damaged.readAll());
    ASSERT_TRUE(image) << "its header is whole";
    constexpr int kRounds = 1000;
    int prepared = 0;
    for (int i = 0; i < kRounds; ++i)
        prepared += image->scaledJPEG(20, 13, *ColorSpace::sRGB(), kBest).has_value();
    EXPECT_EQ(prepared, 0) << "of " << kRounds;
}

TEST(MalformedImages, ASmallFileOf50000By50000PixelsIsUndecodable) {
    constexpr quint32 kSide = 50'000;
    platform::startImageLibrary();
    for (const char* writer : {".png", ".png[interlace]", ".png[bitdepth=1]"})
        EXPECT_FALSE(Image::open(emptyPNG(kSide, kSide, writer))) << writer;
    for (const char* writer : {".jpg", ".jpg[interlace]"})
        EXPECT_FALSE(Image::open(jpegOfSize(kSide, kSide, writer))) << writer;
    for (const char* writer : {".tif", ".tif[compression=deflate]"})
        EXPECT_FALSE(isPrepared(tiffOfSize(kSide, kSide, writer))) << writer;
    for (const char* writer : {".heic", ".avif[compression=av1,speed=9]"})
        EXPECT_FALSE(isPrepared(heifOfSize(kSide, kSide, writer))) << writer;
    EXPECT_LT(peakKilobytes(), kMostKilobytes);
}

TEST(MalformedImages, TheSameFilesWithASizeThatFitsAreOpened) {
    platform::startImageLibrary();
    EXPECT_TRUE(Image::open(emptyPNG(4000, 3000, ".png")));
    EXPECT_TRUE(Image::open(jpegOfSize(4000, 3000, ".jpg[interlace]") + QByteArray(30'000, 'x')));
    EXPECT_TRUE(isPrepared(tiffOfSize(20, 15, ".tif")));
    EXPECT_TRUE(isPrepared(heifOfSize(64, 64, ".heic")));
}

TEST(MalformedImages, WhatADecoderWouldHoldBeyondAGigabyteIsUndecodable) {
    platform::startImageLibrary();
    EXPECT_TRUE(Image::open(emptyPNG(16'000, 16'000, ".png[interlace]")));
    EXPECT_FALSE(Image::open(emptyPNG(20'000, 20'000, ".png[interlace]")));
    const QByteArray behindTheEnd(1'000'000, 'x'); // Else they would be too small for so many pixels.
    EXPECT_TRUE(Image::open(jpegOfSize(12'000, 12'000, ".jpg[interlace]") + behindTheEnd));
    EXPECT_FALSE(Image::open(jpegOfSize(16'000, 16'000, ".jpg[interlace]") + behindTheEnd));
    EXPECT_FALSE(Image::open(heifOfSize(16'000, 16'000, ".heic")));
    // All of a WebP of 16383 by 16383 grey pixels.
    EXPECT_FALSE(Image::open(
        QByteArray::fromHex("524946461e000000574542505650384c110000002ffebfff0f0750c1e295b1ff8188e87f0000")));
}

TEST(MalformedImages, AJPEGTooSmallForItsPixelsIsUndecodableThoughItsEndIsThere) {
    platform::startImageLibrary();
    const QByteArray jpeg = jpegOfSize(4000, 3000, ".jpg");
    EXPECT_FALSE(Image::open(jpeg));
    EXPECT_TRUE(Image::open(jpeg + QByteArray(4000 * 3000 / 512, 'x')));
    // As flat as can be is still enough.
    EXPECT_TRUE(isPrepared(file(VImage::black(4000, 3000), ".jpg[Q=1,optimize_coding]")));
}

TEST(MalformedImages, LinesOfExtremeLengthAreUndecodable) {
    platform::startImageLibrary();
    EXPECT_TRUE(Image::open(emptyPNG(131'072, 8, ".png")));
    EXPECT_FALSE(Image::open(emptyPNG(131'073, 8, ".png")));
    EXPECT_FALSE(Image::open(emptyPNG(8, 131'073, ".png")));
    EXPECT_FALSE(isPrepared(tiffOfSize(1'000'000, 268, ".tif[compression=deflate]")));
}

TEST(MalformedImages, AFewBytesForManyPixelsHoldNoPhotograph) {
    platform::startImageLibrary();
    const QByteArray small = emptyPNG(30'000, 30'000, ".png");
    EXPECT_FALSE(Image::open(small));
    // Behind the last chunk nothing is read: the file's size is what differs.
    EXPECT_TRUE(Image::open(small + QByteArray(30'000 * 30'000 / 100, 'x')));
    EXPECT_TRUE(Image::open(emptyPNG(16'000, 16'000, ".png"))) << "not too many to be decoded";
}

TEST(MalformedImages, AJPEGOfMoreScansThanAnyEncoderMakesIsUndecodable) {
    const auto ofScans = [](int count) {
        const QByteArray jpeg = file(gradient(40, 30), ".jpg[interlace]");
        const qsizetype last = jpeg.lastIndexOf("\xFF\xDA");
        const QByteArray scan = jpeg.mid(last).chopped(2);
        return jpeg.chopped(2) + scan.repeated(count - platform::scanCount(jpeg)) + jpeg.right(2);
    };
    EXPECT_EQ(platform::scanCount(ofScans(100)), 100);
    EXPECT_TRUE(Image::open(ofScans(100)));
    EXPECT_FALSE(Image::open(ofScans(101)));
}
