// JPEGs with codes made for them: the same picture, in as few bytes as the encoder's own such codes take.

#include "platform/HuffmanCodes.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

using platform::withOwnHuffmanCodes;
using test_support::decoded;
using test_support::file;
using test_support::gradient;
using test_support::noise;
using test_support::patches;
using test_support::segments;
using vips::VImage;

namespace {

constexpr unsigned char kHuffmanTables = 0xC4;

bool samePixels(const QByteArray& one, const QByteArray& other) {
    const VImage a = decoded(one);
    const VImage b = decoded(other);
    return a.width() == b.width() && a.height() == b.height() && a.bands() == b.bands() &&
           (a - b).abs().max() == 0;
}

void expectBestCodes(const VImage& picture, const std::string& options) {
    SCOPED_TRACE(options);
    const QByteArray standard = file(picture, (".jpg[strip," + options + "]").c_str());
    const QByteArray best = file(picture, (".jpg[strip,optimize_coding," + options + "]").c_str());
    const auto ours = withOwnHuffmanCodes(standard);
    ASSERT_TRUE(ours);
    EXPECT_TRUE(samePixels(*ours, standard));
    EXPECT_EQ(ours->size(), best.size());
    const auto again = withOwnHuffmanCodes(*ours);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, *ours) << "nothing is left to gain";
}

/// The number of codes of 16 bits.
int longestCodes(const QByteArray& jpeg) {
    int count = 0;
    for (const auto& segment : segments(jpeg)) {
        if (segment.marker == kHuffmanTables)
            count += static_cast<unsigned char>(segment.payload[16]);
    }
    return count;
}

} // namespace

TEST(HuffmanCodes, AreTheBestForEveryKindOfPicture) {
    const VImage colored = noise(203, 151);
    for (const char* options : {"Q=100", "Q=85", "Q=50,subsample_mode=on", "Q=95,subsample_mode=on", "Q=1"}) {
        expectBestCodes(colored, options);
        expectBestCodes(colored.extract_band(1), options);
        expectBestCodes(gradient(640, 333), options);
    }
    expectBestCodes(patches({{10, 200, 30, 0}, {255, 0, 90, 40}}, 2, 60, VIPS_INTERPRETATION_CMYK), "Q=90");
}

TEST(HuffmanCodes, AreMadeForPicturesOfAnySize) {
    for (const auto& [width, height] : {std::pair(1, 1), std::pair(8, 8), std::pair(9, 7), std::pair(16, 17),
                                        std::pair(1000, 1), std::pair(3, 900)}) {
        SCOPED_TRACE(std::to_string(width) + " by " + std::to_string(height));
        expectBestCodes(gradient(width, height), "Q=100");
        expectBestCodes(gradient(width, height), "Q=80,subsample_mode=on");
    }
}

TEST(HuffmanCodes, AreNeverLongerThanAllowed) {
    // Ever rarer symbols, up to codes that would need more than 16 bits.
    VImage picture = VImage::black(2400, 2400).cast(VIPS_FORMAT_FLOAT) + 128.0;
    for (int i = 0; i < 12; ++i)
        picture = picture.insert(
            VImage::gaussnoise(
                8 << (i / 2), 8 << ((i + 1) / 2),
                VImage::option()->set("mean", 128)->set("sigma", 400.0 / (1 << i))->set("seed", i)),
            0, 200 * i);
    const QByteArray standard = file(picture.cast(VIPS_FORMAT_UCHAR), ".jpg[strip,Q=100]");
    const auto ours = withOwnHuffmanCodes(standard);
    ASSERT_TRUE(ours);
    EXPECT_GT(longestCodes(*ours), 0);
    expectBestCodes(picture.cast(VIPS_FORMAT_UCHAR), "Q=100");
}

TEST(HuffmanCodes, WhatIsNoBaselineJPEGOfOneScanIsLeftToTheCaller) {
    const VImage picture = noise(64, 48);
    const QByteArray jpeg = file(picture, ".jpg[strip]");
    EXPECT_FALSE(withOwnHuffmanCodes({}));
    EXPECT_FALSE(withOwnHuffmanCodes("no JPEG"));
    EXPECT_FALSE(withOwnHuffmanCodes(file(picture, ".png")));
    EXPECT_FALSE(withOwnHuffmanCodes(file(picture, ".jpg[interlace]")));
    EXPECT_FALSE(withOwnHuffmanCodes(file(picture, ".jpg[restart_interval=1]")));
    for (const qsizetype size : {qsizetype(2), qsizetype(20), jpeg.size() / 2, jpeg.size() - 20})
        EXPECT_FALSE(withOwnHuffmanCodes(jpeg.left(size))) << size;
}

TEST(HuffmanCodes, DamagedDataIsSurvived) {
    const QByteArray jpeg = file(noise(64, 48), ".jpg[strip,Q=90]");
    std::mt19937 random(7);
    int refused = 0;
    for (int i = 0; i < 2000; ++i) {
        QByteArray damaged = jpeg;
        // Mostly in what stands before the pixels.
        const auto bound = static_cast<std::uint32_t>(i % 3 ? 640 : damaged.size());
        for (int j = 0; j <= i % 4; ++j)
            damaged[static_cast<qsizetype>(random() % bound)] = static_cast<char>(random());
        refused += !withOwnHuffmanCodes(damaged);
    }
    EXPECT_GT(refused, 0);
}
