// How much memory a picture takes. A program of its own: the high-water mark is the whole process's, so the
// tests that take little come first.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtCore/QBuffer>
#include <QtGui/QImage>

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

/// Written by another library, so that the mark shows the reading alone.
QByteArray grey(int width, int height, const char* format) {
    QImage image(width, height, QImage::Format_RGB32);
    image.fill(Qt::gray);
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    image.save(&file, format);
    return file.data();
}

} // namespace

TEST(ImageMemory, AJPEGThatIsScaledDownFarIsDecodedSmall) {
    // Its lines have an eighth of the length: the decoder left the other pixels out.
    platform::startImageLibrary();
    const QByteArray jpeg = grey(20'000, 1000, "JPG");
    const QByteArray png = grey(20'000, 1000, "PNG");
    ASSERT_TRUE(Image::open(jpeg)->scaledJPEG(500, 25, *ColorSpace::sRGB(), kBest));
    const std::size_t decodedSmall = vips_tracked_get_mem_highwater();
    ASSERT_TRUE(Image::open(png)->scaledJPEG(500, 25, *ColorSpace::sRGB(), kBest));
    EXPECT_LT(decodedSmall, vips_tracked_get_mem_highwater() / 2);
}

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
