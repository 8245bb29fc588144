// What images become: sizes, formats, damage, metadata, the encoder's settings.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtGui/QImage>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <thread>

using platform::ColorSpace;
using platform::Image;
using test_support::Color;
using test_support::decoded;
using test_support::embeddedProfile;
using test_support::file;
using test_support::gradient;
using test_support::noise;
using test_support::patchColor;
using test_support::patches;
using test_support::profileResource;
using test_support::segments;
using test_support::withProfile;
using vips::VImage;

namespace {

constexpr double kBest = 1.0;
constexpr unsigned char kQuantizationTables = 0xDB;
constexpr unsigned char kHuffmanTables = 0xC4;
constexpr unsigned char kHuffmanBaseline = 0xC0;

constexpr int kSide = 64;
constexpr int kColumns = 3;
const std::vector<Color> kColors{{0, 0, 0},      {255, 255, 255}, {128, 128, 128},
                                 {200, 40, 30},  {40, 160, 60},   {30, 60, 190},
                                 {230, 200, 40}, {20, 140, 160},  {200, 150, 120}};

QByteArray scaled(const QByteArray& data, int width, int height, double quality = kBest) {
    const auto image = Image::open(data);
    return image ? image->scaledJPEG(width, height, *ColorSpace::sRGB(), quality).value_or(QByteArray())
                 : QByteArray();
}

QByteArray unscaled(const QByteArray& data, double quality = kBest) {
    const auto image = Image::open(data);
    return image ? image->asJPEG(quality).value_or(QByteArray()) : QByteArray();
}

void expectNear(const Color& color, const Color& expected, double tolerance) {
    ASSERT_EQ(color.size(), expected.size());
    for (std::size_t i = 0; i < color.size(); ++i)
        EXPECT_NEAR(color[i], expected[i], tolerance) << "component " << i;
}

/// The first value of each quantization table.
std::vector<int> quantization(const QByteArray& jpeg) {
    std::vector<int> first;
    for (const auto& segment : segments(jpeg)) {
        if (segment.marker == kQuantizationTables)
            first.push_back(static_cast<unsigned char>(segment.payload[1]));
    }
    return first;
}

} // namespace

// --- Formats ---

struct Format {
    const char* name;
    const char* writer;
    double tolerance;
};
void PrintTo(const Format& format, std::ostream* out) {
    *out << format.name;
}

class EveryFormat : public testing::TestWithParam<Format> {};

INSTANTIATE_TEST_SUITE_P(
    Image, EveryFormat,
    testing::Values(Format{"JPEG", ".jpg[Q=98]", 4}, Format{"ProgressiveJPEG", ".jpg[Q=98,interlace]", 4},
                    Format{"SubsampledJPEG", ".jpg[Q=90,subsample_mode=on]", 6}, Format{"PNG", ".png", 2},
                    Format{"InterlacedPNG", ".png[interlace]", 2}, Format{"PalettePNG", ".png[palette]", 4},
                    Format{"TIFF", ".tif", 2}, Format{"TiledTIFF", ".tif[tile,compression=deflate]", 2},
                    Format{"LZWTIFF", ".tif[compression=lzw,predictor=horizontal]", 2},
                    Format{"JPEGTIFF", ".tif[compression=jpeg,Q=98]", 5},
                    Format{"PyramidTIFF", ".tif[tile,pyramid]", 2}, Format{"BigTIFF", ".tif[bigtiff]", 2},
                    Format{"WebP", ".webp[Q=98]", 6}, Format{"LosslessWebP", ".webp[lossless]", 2},
                    Format{"HEIC", ".heic[lossless]", 4}, Format{"AVIF", ".avif[lossless,speed=9]", 4}),
    [](const auto& instance) { return instance.param.name; });

TEST_P(EveryFormat, KeepsItsColoursAndSizeWithoutScaling) {
    const VImage result = decoded(unscaled(file(patches(kColors, kColumns, kSide), GetParam().writer)));
    ASSERT_EQ(result.width(), kColumns * kSide);
    ASSERT_EQ(result.height(), kColumns * kSide);
    for (int i = 0; i < int(kColors.size()); ++i) {
        SCOPED_TRACE(i);
        expectNear(patchColor(result, i, kColumns, kSide), kColors[std::size_t(i)], GetParam().tolerance);
    }
}

TEST_P(EveryFormat, KeepsItsColoursWhenItIsScaled) {
    const QByteArray data = file(patches(kColors, kColumns, 2 * kSide), GetParam().writer);
    for (const int side : {kSide / 2, 3 * kSide}) {
        const VImage result = decoded(scaled(data, kColumns * side, kColumns * side));
        ASSERT_EQ(result.width(), kColumns * side);
        for (int i = 0; i < int(kColors.size()); ++i) {
            SCOPED_TRACE(std::to_string(side) + ", patch " + std::to_string(i));
            expectNear(patchColor(result, i, kColumns, side), kColors[std::size_t(i)], GetParam().tolerance);
        }
    }
}

TEST_P(EveryFormat, IsUndecodableWhenItIsCutOff) {
    const QByteArray data = file(noise(300, 200), GetParam().writer);
    ASSERT_FALSE(unscaled(data).isEmpty());
    for (const qsizetype size : {data.size() / 2, data.size() * 9 / 10, data.size() - 100, data.size() - 1}) {
        SCOPED_TRACE(size);
        EXPECT_TRUE(unscaled(data.left(size)).isEmpty());
        EXPECT_TRUE(scaled(data.left(size), 150, 100).isEmpty());
        EXPECT_TRUE(scaled(data.left(size), 600, 400).isEmpty());
    }
}

TEST(Image, AStripedTIFFWhoseDirectoryComesFirstIsUndecodableWhenItIsCutOff) {
    // Header, directory, pixels: nothing but the last strip shows what is missing.
    QByteArray data("II*\0\x08\0\0\0", 8);
    const auto append16 = [&](quint16 value) { data.append(reinterpret_cast<const char*>(&value), 2); };
    const auto append32 = [&](quint32 value) { data.append(reinterpret_cast<const char*>(&value), 4); };
    const std::array<std::array<quint32, 3>, 9> entries{{{256, 4, 200},
                                                         {257, 4, 100},
                                                         {258, 3, 8},
                                                         {259, 3, 1},
                                                         {262, 3, 1},
                                                         {273, 4, 8 + 2 + 9 * 12 + 4},
                                                         {277, 3, 1},
                                                         {278, 4, 100},
                                                         {279, 4, 200 * 100}}};
    append16(quint16(entries.size()));
    for (const auto& [tag, type, value] : entries) {
        append16(quint16(tag));
        append16(quint16(type));
        append32(1);
        append32(value);
    }
    append32(0);
    data.append(QByteArray(200 * 100, '\x50'));

    EXPECT_FALSE(unscaled(data).isEmpty());
    EXPECT_TRUE(unscaled(data.chopped(1)).isEmpty());
    EXPECT_TRUE(scaled(data.chopped(1), 100, 50).isEmpty());
}

TEST(Image, DamageThatTheDecoderNoticesMakesItUndecodable) {
    for (const char* writer : {".png", ".tif[compression=deflate]"}) {
        SCOPED_TRACE(writer);
        QByteArray data = file(noise(300, 200), writer);
        data.replace(data.size() / 2, 64, QByteArray(64, '\x55'));
        EXPECT_TRUE(unscaled(data).isEmpty());
        EXPECT_TRUE(scaled(data, 150, 100).isEmpty());
    }
}

TEST(Image, DamagedDataWritesNothingToTheLog) {
    const QByteArray jpeg = file(noise(300, 200), ".jpg");
    testing::internal::CaptureStderr();
    for (qsizetype size = 0; size < jpeg.size(); size += jpeg.size() / 40)
        unscaled(jpeg.left(size));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Image, WhatIsNoPhotographIsNotOpened) {
    const VImage picture = gradient(40, 30);
    EXPECT_FALSE(Image::open({}));
    EXPECT_FALSE(Image::open("not an image"));
    EXPECT_FALSE(
        Image::open(R"(<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"><rect/></svg>)"));
    EXPECT_FALSE(Image::open("P6 2 1 255 abcdef"));
    EXPECT_FALSE(Image::open(file(picture, ".gif")));
    EXPECT_FALSE(Image::open(file(picture, ".jp2")));
    EXPECT_FALSE(Image::open(file(picture, ".png").left(20)));
}

TEST(Image, OneBitGreyBecomesBlackAndWhite) {
    const VImage stripes = patches({{0}, {255}, {0}, {255}}, 2, kSide, VIPS_INTERPRETATION_B_W);
    for (const char* writer : {".png[bitdepth=1]", ".tif[bitdepth=1]", ".tif[bitdepth=1,miniswhite]"}) {
        SCOPED_TRACE(writer);
        const VImage result = decoded(unscaled(file(stripes, writer)));
        EXPECT_NEAR(patchColor(result, 0, 2, kSide)[0], 0, 1);
        EXPECT_NEAR(patchColor(result, 1, 2, kSide)[0], 255, 1);
    }
}

TEST(Image, SixteenBitsAreRoundedToEight) {
    const std::vector<Color> wide{{0x8080, 0x8100, 0x0000}, {0xFFFF, 0xFF7F, 0xFE80}};
    const std::vector<Color> narrow{{128, 128, 0}, {255, 255, 254}};
    for (const char* writer : {".tif", ".png"}) {
        SCOPED_TRACE(writer);
        const QByteArray data = file(patches(wide, 2, kSide, VIPS_INTERPRETATION_RGB16), writer);
        for (const QByteArray& jpeg : {unscaled(data), scaled(data, kSide, kSide / 2)}) {
            const VImage result = decoded(jpeg);
            for (int i = 0; i < 2; ++i)
                expectNear(patchColor(result, i, 2, result.width() / 2), narrow[std::size_t(i)], 1.01);
        }
    }
}

TEST(Image, FloatingPointRunsFromZeroToOne) {
    for (const VipsInterpretation model : {VIPS_INTERPRETATION_sRGB, VIPS_INTERPRETATION_B_W}) {
        const VImage eight = model == VIPS_INTERPRETATION_sRGB
                                 ? patches(kColors, kColumns, kSide)
                                 : patches({{0}, {90}, {255}}, kColumns, kSide, model);
        const VImage result = decoded(unscaled(file(eight / 255.0, ".tif")));
        ASSERT_EQ(result.bands(), eight.bands());
        for (int i = 0; i < 3; ++i)
            expectNear(patchColor(result, i, kColumns, kSide), patchColor(eight, i, kColumns, kSide), 2);
    }
}

TEST(Image, FloatingPointBeyondItsRangeIsClipped) {
    const VImage result =
        decoded(unscaled(file(patches({{0, 0, 0}, {255, 255, 255}}, 2, kSide) * 2.0 - 200.0, ".tif")));
    expectNear(patchColor(result, 0, 2, kSide), {0, 0, 0}, 1);
    expectNear(patchColor(result, 1, 2, kSide), {255, 255, 255}, 1);
}

TEST(Image, WholeNumbersWithoutAWhiteAreUndecodable) {
    EXPECT_TRUE(unscaled(file(gradient(40, 30).cast(VIPS_FORMAT_INT), ".tif")).isEmpty());
}

TEST(Image, ALabTIFFBecomesSRGB) {
    const VImage lab = patches(kColors, kColumns, kSide).colourspace(VIPS_INTERPRETATION_LAB);
    const QByteArray data = file(lab.cast(VIPS_FORMAT_FLOAT), ".tif");
    const VImage result = decoded(unscaled(data));
    for (int i = 0; i < int(kColors.size()); ++i)
        expectNear(patchColor(result, i, kColumns, kSide), kColors[std::size_t(i)], 3);
}

// --- Alpha ---

TEST(Image, AlphaIsFlattenedOverWhite) {
    const std::vector<Color> colors{{200, 100, 50, 255}, {200, 100, 50, 128}, {200, 100, 50, 0}};
    const std::vector<Color> flat{{200, 100, 50}, {227.4, 177.2, 152.1}, {255, 255, 255}};
    for (const char* writer : {".png", ".tif", ".webp[lossless]", ".heic[lossless]"}) {
        SCOPED_TRACE(writer);
        const QByteArray data = file(patches(colors, 3, kSide), writer);
        for (const QByteArray& jpeg : {unscaled(data), scaled(data, 3 * kSide / 2, kSide / 2)}) {
            const VImage result = decoded(jpeg);
            for (int i = 0; i < 3; ++i)
                expectNear(patchColor(result, i, 3, result.height()), flat[std::size_t(i)], 4);
        }
    }
}

TEST(Image, SixteenBitAndGreyAlphaAreFlattenedOverWhite) {
    const QByteArray wide = file(patches({{0x8080, 0, 0, 0xFFFF}, {0, 0, 0, 0x8080}, {0, 0, 0, 0}}, 3, kSide,
                                         VIPS_INTERPRETATION_RGB16),
                                 ".png");
    const QByteArray grey =
        file(patches({{128, 255}, {0, 128}, {0, 0}}, 3, kSide, VIPS_INTERPRETATION_B_W), ".png");
    EXPECT_NEAR(patchColor(decoded(unscaled(wide)), 0, 3, kSide)[0], 128, 2);
    EXPECT_NEAR(patchColor(decoded(unscaled(grey)), 0, 3, kSide)[0], 128, 2);
    for (const QByteArray& data : {wide, grey}) {
        EXPECT_NEAR(patchColor(decoded(unscaled(data)), 1, 3, kSide)[0], 127, 2);
        EXPECT_NEAR(patchColor(decoded(unscaled(data)), 2, 3, kSide)[0], 255, 1);
    }
}

TEST(Image, TheColourBehindTransparencyNeverBleedsIntoAScaledEdge) {
    // White on one side, fully transparent black on the other: all of it is white.
    const QByteArray data = file(patches({{255, 255, 255, 255}, {0, 0, 0, 0}}, 2, 100), ".png");
    for (const int width : {50, 60, 330})
        EXPECT_GE(decoded(scaled(data, width, width / 2)).min(), 254) << width;
}

TEST(Image, PremultipliedAlphaIsNotAppliedTwice) {
    const VImage half = patches({{200, 100, 50, 128}}, 1, kSide);
    const QByteArray data = file(half.premultiply().cast(VIPS_FORMAT_UCHAR), ".tif[premultiply]");
    const Color result = patchColor(decoded(unscaled(file(half, ".tif[premultiply]"))), 0, 1, kSide);
    expectNear(result, {227.4, 177.2, 152.1}, 3);
}

TEST(Image, ATIFFsSpotChannelIsNoAlpha) {
    QByteArray data = file(patches({{200, 100, 50, 0}}, 1, kSide), ".tif");
    const QByteArray entry("\x52\x01\x03\x00\x01\x00\x00\x00\x02\x00",
                           10); // ExtraSamples: unassociated alpha.
    ASSERT_EQ(data.count(entry), 1);
    data.replace(entry, QByteArray("\x52\x01\x03\x00\x01\x00\x00\x00\x00\x00", 10));
    expectNear(patchColor(decoded(unscaled(data)), 0, 1, kSide), {200, 100, 50}, 2);
}

// --- Sizes ---

TEST(Image, ScalingGivesTheExactSize) {
    const QByteArray wide = file(gradient(2000, 1000), ".jpg");
    const QByteArray flat = file(gradient(1281, 100), ".png");
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{{1280, 640},
                                                                        {1280, 853},
                                                                        {1279, 639},
                                                                        {333, 17},
                                                                        {1999, 999},
                                                                        {2001, 1001},
                                                                        {1, 1},
                                                                        {5000, 100},
                                                                        {100, 1300}}) {
        const VImage result = decoded(scaled(wide, width, height));
        EXPECT_EQ(result.width(), width);
        EXPECT_EQ(result.height(), height);
    }
    const VImage enlarged = decoded(scaled(flat, 2560, 199));
    EXPECT_EQ(enlarged.width(), 2560);
    EXPECT_EQ(enlarged.height(), 199);
}

TEST(Image, ASizeOfNothingIsRefused) {
    const auto image = Image::open(file(gradient(64, 64), ".png"));
    EXPECT_FALSE(image->scaledJPEG(0, 10, *ColorSpace::sRGB(), kBest));
    EXPECT_FALSE(image->scaledJPEG(10, -1, *ColorSpace::sRGB(), kBest));
}

TEST(Image, MoreThanAJPEGHoldsIsRefused) {
    EXPECT_TRUE(unscaled(file(gradient(70000, 2), ".png")).isEmpty());
    EXPECT_TRUE(scaled(file(gradient(1000, 2), ".png"), 70000, 2).isEmpty());
}

TEST(Image, ScalingShiftsNothing) {
    // Left half black, right half white: the edge stays in the middle, to a hundredth of a pixel.
    const QByteArray data = file(patches({{0, 0, 0}, {255, 255, 255}}, 2, 200), ".png");
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {800, 400}, {1000, 500}, {402, 201}, {398, 199}, {200, 100}, {100, 50}, {40, 20}}) {
        const VImage result = decoded(scaled(data, width, height));
        EXPECT_NEAR(result.avg() / 255 * width, width / 2.0, width / 400.0 * 0.1 + 0.02) << width;
    }
}

TEST(Image, AMirroredPictureScalesToTheMirrorImage) {
    const VImage picture = noise(300, 200);
    for (const auto& [width, height] :
         std::vector<std::pair<int, int>>{{700, 467}, {600, 400}, {150, 100}, {130, 87}}) {
        const VImage straight = decoded(scaled(file(picture, ".png"), width, height));
        const VImage mirrored =
            decoded(scaled(file(picture.flip(VIPS_DIRECTION_HORIZONTAL), ".png"), width, height));
        const double difference = (straight - mirrored.flip(VIPS_DIRECTION_HORIZONTAL)).abs().avg();
        EXPECT_LT(difference, 1.5) << width;
    }
}

TEST(Image, AnEnlargedPictureReachesItsEdges) {
    const VImage result = decoded(scaled(file(patches({{250, 250, 250}}, 1, 200), ".png"), 500, 500));
    EXPECT_GE(result.min(), 248);
}

TEST(Image, TheOrientationTagIsNotApplied) {
    VImage picture = gradient(80, 40);
    picture.set(VIPS_META_ORIENTATION, 6);
    for (const char* writer : {".jpg", ".tif", ".webp"}) {
        SCOPED_TRACE(writer);
        const auto image = Image::open(file(picture, writer));
        EXPECT_EQ(image->width(), 80U);
        EXPECT_EQ(image->height(), 40U);
        EXPECT_EQ(decoded(*image->asJPEG(kBest)).width(), 80);
        const VImage scaledResult = decoded(*image->scaledJPEG(40, 20, *ColorSpace::sRGB(), kBest));
        EXPECT_LT(scaledResult.getpoint(2, 10)[0], 40);
        EXPECT_GT(scaledResult.getpoint(37, 10)[0], 215);
    }
}

// --- What the file carries ---

TEST(Image, OutputCarriesNoMetadata) {
    VImage picture = withProfile(gradient(400, 300), profileResource("AdobeRGB1998.icc"));
    picture.set("exif-ifd0-Artist", "A Photographer");
    picture.set("exif-ifd3-GPSLatitude", "48/1 51/1 29/1");
    picture.set("exif-ifd0-Copyright", "Someone");
    const QByteArray xmp("<x:xmpmeta xmlns:x='adobe:ns:meta/'>SECRET</x:xmpmeta>");
    vips_image_set_blob_copy(picture.get_image(), VIPS_META_XMP_NAME, xmp.constData(),
                             std::size_t(xmp.size()));
    vips_image_set_blob_copy(picture.get_image(), VIPS_META_IPTC_NAME, "Photoshop 3.0", 14);
    for (const char* writer : {".jpg", ".tif", ".webp"}) {
        SCOPED_TRACE(writer);
        const QByteArray data = file(picture, writer);
        ASSERT_TRUE(data.contains("SECRET"));
        for (const QByteArray& jpeg : {unscaled(data), scaled(data, 200, 150)}) {
            ASSERT_FALSE(jpeg.isEmpty());
            for (const auto& segment : segments(jpeg)) {
                const bool isApplications = (segment.marker & 0xF0) == 0xE0 || segment.marker == 0xFE;
                const bool isJFIFOrICC =
                    segment.payload.startsWith("JFIF") || segment.payload.startsWith("ICC_PROFILE");
                EXPECT_TRUE(!isApplications || isJFIFOrICC) << "marker " << int(segment.marker);
            }
            for (const char* text : {"SECRET", "A Photographer", "Someone", "Photoshop"})
                EXPECT_FALSE(jpeg.contains(text)) << text;
        }
    }
}

TEST(Image, OutputIsABaselineJPEG) {
    const QByteArray progressive = file(gradient(400, 300), ".jpg[interlace]");
    for (const QByteArray& jpeg : {unscaled(progressive), scaled(progressive, 200, 150)}) {
        const auto found = segments(jpeg);
        EXPECT_EQ(std::count_if(found.begin(), found.end(),
                                [](const auto& s) { return s.marker == kHuffmanBaseline; }),
                  1);
    }
}

TEST(Image, QualityIsAFractionOfTheEncodersHundred) {
    const QByteArray data = file(noise(64, 64), ".png");
    const auto firstValue = [&](double quality) { return quantization(unscaled(data, quality)).front(); };
    EXPECT_EQ(firstValue(12 / 12.0), 1);
    EXPECT_EQ(firstValue(6 / 12.0), 16);  // The value that the tables of ITU T.81, annex K, begin with.
    EXPECT_EQ(firstValue(9 / 12.0), 8);   // Half of it, at 75.
    EXPECT_EQ(firstValue(1 / 12.0), 100); // 5000 / 8 per cent of it, at 8.
    EXPECT_EQ(quantization(scaled(data, 32, 32, 6 / 12.0)).front(), 16);
}

TEST(Image, TheLeastQualityIsOneOfAHundred) {
    const QByteArray data = file(noise(64, 64), ".png");
    for (const double quality : {0.0, -3.0, 0.001, std::numeric_limits<double>::quiet_NaN()})
        EXPECT_EQ(quantization(unscaled(data, quality)).front(), 255) << quality;
}

TEST(Image, MoreThanTheBestQualityIsTheBest) {
    const QByteArray data = file(noise(64, 64), ".png");
    EXPECT_EQ(unscaled(data, std::numeric_limits<double>::infinity()), unscaled(data, 1.0));
}

// --- Bounds ---

TEST(Image, ALargePictureIsEncodedWithTheStandardsCodes) {
    // The encoder would have to hold all of it for codes of its own.
    constexpr qsizetype kSizeOfStandardTables =
        2 * (1 + 16 + 12) + 2 * (1 + 16 + 162); // ITU T.81, annex K.3.
    const auto sizeOfTables = [](const QByteArray& jpeg) {
        qsizetype size = 0;
        for (const auto& segment : segments(jpeg)) {
            if (segment.marker == kHuffmanTables)
                size += segment.payload.size();
        }
        return size;
    };
    const VImage grey = patches({{90, 100, 110}}, 1, 100);
    EXPECT_LT(sizeOfTables(unscaled(file(grey, ".png"))), kSizeOfStandardTables);
    EXPECT_EQ(sizeOfTables(unscaled(file(grey.replicate(21, 20), ".png[compression=1]"))),
              kSizeOfStandardTables);
}

TEST(Image, SeveralThreadsPrepareTheSamePictureAlike) {
    const QByteArray data = file(noise(900, 600), ".jpg");
    const QByteArray expected = scaled(data, 300, 200);
    std::array<QByteArray, 4> results;
    {
        std::vector<std::jthread> threads;
        for (QByteArray& result : results)
            threads.emplace_back([&] { result = scaled(data, 300, 200); });
    }
    for (const QByteArray& result : results)
        EXPECT_EQ(result, expected);
}
