// How much memory a picture takes. A program of its own: the high-water mark is the whole process's.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <gtest/gtest.h>

using platform::ColorSpace;
using platform::Image;
using test_support::file;
using test_support::gradient;
using vips::VImage;

namespace {

constexpr double kBest = 1.0;

constexpr std::size_t bytesOfPixels(std::size_t width, std::size_t height) {
    return width * height * 3;
}

} // namespace

TEST(ImageMemory, AnEnlargementIsComputedAFewLinesAtATime) {
    constexpr std::size_t kBound = bytesOfPixels(9000, 6000) / 2;
    const QByteArray data = file(gradient(6000, 4000), ".tif");
    ASSERT_LT(vips_tracked_get_mem_highwater(), kBound);
    ASSERT_TRUE(Image::open(data)->scaledJPEG(9000, 6000, *ColorSpace::sRGB(), kBest));
    EXPECT_LT(vips_tracked_get_mem_highwater(), kBound);
}

TEST(ImageMemory, ABigPictureIsDecodedAFewLinesAtATime) {
    constexpr std::size_t kBound = bytesOfPixels(12'000, 12'000) / 2;
    platform::startImageLibrary();
    const VImage black = VImage::black(12'000, 12'000);
    const QByteArray data = file(VImage::bandjoin({black, black, black}), ".png[compression=1]");
    ASSERT_LT(vips_tracked_get_mem_highwater(), kBound);
    ASSERT_TRUE(Image::open(data)->scaledJPEG(1280, 1280, *ColorSpace::sRGB(), kBest));
    EXPECT_LT(vips_tracked_get_mem_highwater(), kBound);
}
