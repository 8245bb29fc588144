#include "host/core/ImageRenderer.h"

#include "platform/Image.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

#include <vips/vips8>

#include <gtest/gtest.h>

#include <sys/stat.h>

using host::renderImage;
using vips::VImage;

namespace {

constexpr int kWidth = 7;
constexpr int kHeight = 4;

/// Where the pixel that is seen at (x, y) is stored, by the meaning of each Exif orientation: what the stored
/// row 0 and column 0 are in the picture as it is seen (Exif 2.3, 4.6.4, tag 274).
std::pair<int, int> storedAt(int orientation, int x, int y, int storedWidth, int storedHeight) {
    const int right = storedWidth - 1;
    const int bottom = storedHeight - 1;
    switch (orientation) {
    case 2:
        return {right - x, y}; // row 0 is the top, column 0 the right side
    case 3:
        return {right - x, bottom - y}; // bottom, right side
    case 4:
        return {x, bottom - y}; // bottom, left side
    case 5:
        return {y, x}; // left side, top
    case 6:
        return {y, bottom - x}; // right side, top
    case 7:
        return {right - y, bottom - x}; // right side, bottom
    case 8:
        return {right - y, x}; // left side, bottom
    default:
        return {x, y};
    }
}

class ImageRenderer : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        platform::startImageLibrary();
        ASSERT_TRUE(folder_.isValid());
    }

    QByteArray path(const char* name) const {
        return QFile::encodeName(folder_.filePath(QString::fromLatin1(name)));
    }

    QByteArray write(const char* name, const QByteArray& bytes) const {
        QFile file(QFile::decodeName(path(name)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
        return path(name);
    }

    static QByteArray contents(const QByteArray& path) {
        QFile file(QFile::decodeName(path));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return file.readAll();
    }

    /// 16 bits a component, each pixel with a colour of its own.
    static VImage picture() {
        std::vector<std::uint16_t> pixels;
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x)
                pixels.insert(pixels.end(), {std::uint16_t(x * 9001), std::uint16_t(y * 16001), 4711});
        }
        return VImage(vips_image_new_from_memory_copy(pixels.data(), pixels.size() * sizeof(pixels[0]),
                                                      kWidth, kHeight, 3, VIPS_FORMAT_USHORT))
            .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_RGB16));
    }

    static VImage turned(VImage image, int orientation) {
        VImage result = image.copy();
        result.set(VIPS_META_ORIENTATION, orientation);
        return result;
    }

    static VImage decoded(const QByteArray& bytes) {
        return VImage::new_from_buffer(bytes.constData(), static_cast<std::size_t>(bytes.size()), "");
    }

    QTemporaryDir folder_;
};

} // namespace

TEST_P(ImageRenderer, TurnsEveryOrientationUprightWithoutChangingAPixel) {
    const int orientation = GetParam();
    const QByteArray file = path("turned.tif");
    turned(picture(), orientation).tiffsave(file.constData());

    QString error;
    const auto rendered = renderImage(file, error);

    ASSERT_TRUE(rendered) << error.toStdString();
    const VImage seen = decoded(rendered->data);
    const bool sidesAreSwapped = orientation >= 5;
    ASSERT_EQ(seen.width(), sidesAreSwapped ? kHeight : kWidth);
    ASSERT_EQ(seen.height(), sidesAreSwapped ? kWidth : kHeight);
    EXPECT_EQ(seen.format(), VIPS_FORMAT_USHORT);
    EXPECT_EQ(vips_image_get_orientation(seen.get_image()), 1);
    const VImage stored = picture();
    for (int y = 0; y < seen.height(); ++y) {
        for (int x = 0; x < seen.width(); ++x) {
            const auto [storedX, storedY] = storedAt(orientation, x, y, kWidth, kHeight);
            EXPECT_EQ(seen.getpoint(x, y), stored.getpoint(storedX, storedY)) << x << ' ' << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Orientations, ImageRenderer, testing::Range(2, 9));

TEST_F(ImageRenderer, HandsAnUprightFileOverByteByByte) {
    const QByteArray file = path("upright.jpg");
    picture()
        .cast(VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB))
        .jpegsave(file.constData());
    QString error;
    const auto rendered = renderImage(file, error);
    ASSERT_TRUE(rendered) << error.toStdString();
    EXPECT_EQ(rendered->data, contents(file));
}

TEST_F(ImageRenderer, TurnsAPhotographOfACameraHeldOnEdgeAndDropsItsExif) {
    VImage photograph = turned(VImage::black(40, 20, VImage::option()->set("bands", 3)), 6);
    photograph.set("exif-ifd0-Model", "Camera (Camera, ASCII, 7 components, 7 bytes)");
    const QByteArray file = path("edge.jpg");
    photograph.jpegsave(file.constData());
    QString error;
    const auto rendered = renderImage(file, error);
    ASSERT_TRUE(rendered) << error.toStdString();
    const VImage seen = decoded(rendered->data);
    EXPECT_EQ(seen.width(), 20);
    EXPECT_EQ(seen.height(), 40);
    EXPECT_FALSE(rendered->data.contains("Camera"));
}

TEST_F(ImageRenderer, LeavesNoDescriptionThatWouldTurnTheImageOnceMore) {
    VImage photograph = turned(picture(), 3);
    const QByteArray xmp("<x:xmpmeta><tiff:Orientation>3</tiff:Orientation></x:xmpmeta>");
    vips_image_set_blob_copy(photograph.get_image(), VIPS_META_XMP_NAME, xmp.constData(),
                             std::size_t(xmp.size()));
    const QByteArray file = path("xmp.tif");
    photograph.tiffsave(file.constData());
    ASSERT_TRUE(contents(file).contains(xmp));
    QString error;
    const auto rendered = renderImage(file, error);
    ASSERT_TRUE(rendered) << error.toStdString();
    EXPECT_FALSE(rendered->data.contains("Orientation"));
}

TEST_F(ImageRenderer, KeepsTheColourSpaceOfATurnedImage) {
    VImage photograph = turned(picture(), 8);
    VipsBlob* profile = nullptr;
    ASSERT_EQ(vips_profile_load("p3", &profile, nullptr), 0);
    std::size_t length = 0;
    const void* const bytes = vips_blob_get(profile, &length);
    vips_image_set_blob_copy(photograph.get_image(), VIPS_META_ICC_NAME, bytes, length);
    const QByteArray expected(static_cast<const char*>(bytes), qsizetype(length));
    vips_area_unref(VIPS_AREA(profile));
    const QByteArray file = path("p3.tif");
    photograph.tiffsave(file.constData());

    QString error;
    const auto rendered = renderImage(file, error);

    ASSERT_TRUE(rendered) << error.toStdString();
    const VImage seen = decoded(rendered->data);
    std::size_t keptLength = 0;
    const void* const kept = seen.get_blob(VIPS_META_ICC_NAME, &keptLength);
    EXPECT_EQ(QByteArray(static_cast<const char*>(kept), qsizetype(keptLength)), expected);
}

TEST_F(ImageRenderer, OffersAFileThatIsNoImageAsItIs) {
    QString error;
    for (const QByteArray& bytes : {QByteArray("no image"), QByteArray()}) {
        const auto rendered = renderImage(write("text.jpg", bytes), error);
        ASSERT_TRUE(rendered) << error.toStdString();
        EXPECT_EQ(rendered->data, bytes);
    }
}

TEST_F(ImageRenderer, OffersATurnedImageThatIsCutOffAsItIs) {
    const QByteArray whole = path("whole.jpg");
    turned(VImage::gaussnoise(600, 400).cast(VIPS_FORMAT_UCHAR), 6).jpegsave(whole.constData());
    const QByteArray bytes = contents(whole);
    const QByteArray half = bytes.left(bytes.size() / 2);
    QString error;
    const auto rendered = renderImage(write("half.jpg", half), error);
    ASSERT_TRUE(rendered) << error.toStdString();
    EXPECT_EQ(rendered->data, half);
}

TEST_F(ImageRenderer, TellsWhyAFileCantBeRead) {
    QString error;
    EXPECT_FALSE(renderImage(path("missing.jpg"), error));
    EXPECT_EQ(error, QStringLiteral("No such file or directory"));
}

TEST_F(ImageRenderer, DoesNotWaitForTheWriterOfAPipe) {
    ASSERT_EQ(mkfifo(path("pipe.jpg").constData(), 0600), 0);
    QString error;
    EXPECT_FALSE(renderImage(path("pipe.jpg"), error));
    EXPECT_FALSE(error.isEmpty());
}
