#include "tests/support/Pictures.h"

#include "platform/Image.h"

#include <QtCore/QFile>
#include <QtCore/QtEndian>

/// The HEVC encoder (Debian's libx265) leaves memory behind when a test writes a HEIF file; the plug-in never
/// writes one.
extern "C" const char*
__lsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier): the name is LSan's.
extern "C" Q_DECL_EXPORT const char* __lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "leak:libx265\n";
}

namespace test_support {

using vips::VImage;

namespace {

constexpr unsigned char kAPP2 = 0xE2;
constexpr unsigned char kStartOfScan = 0xDA;

bool is16Bit(VipsInterpretation interpretation) {
    return interpretation == VIPS_INTERPRETATION_RGB16 || interpretation == VIPS_INTERPRETATION_GREY16;
}

} // namespace

QByteArray profileResource(const char* name) {
    QFile resource(QStringLiteral(QUILLMARK_SOURCE_DIR "/resources/") + QString::fromLatin1(name));
    return resource.open(QIODevice::ReadOnly) ? resource.readAll() : QByteArray();
}

VImage patches(const std::vector<Color>& colors, int columns, int side, VipsInterpretation interpretation) {
    platform::startImageLibrary();
    std::vector<VImage> squares;
    const VImage square = VImage::black(side, side).cast(VIPS_FORMAT_FLOAT);
    for (const Color& color : colors)
        squares.push_back(square.new_from_image(color));
    return VImage::arrayjoin(squares, VImage::option()->set("across", columns))
        .cast(is16Bit(interpretation) ? VIPS_FORMAT_USHORT : VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", interpretation));
}

VImage gradient(int width, int height) {
    platform::startImageLibrary();
    const VImage position = VImage::xyz(width, height);
    const VImage x = position.extract_band(0) * (255.0 / width);
    const VImage y = position.extract_band(1) * (255.0 / height);
    return VImage::bandjoin({x, y, (x + y) / 2})
        .cast(VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

VImage noise(int width, int height) {
    platform::startImageLibrary();
    std::vector<VImage> bands;
    for (const int seed : {1, 2, 3})
        bands.push_back(VImage::gaussnoise(
            width, height, VImage::option()->set("mean", 128)->set("sigma", 60)->set("seed", seed)));
    return VImage::bandjoin(bands)
        .cast(VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

VImage withProfile(const VImage& image, const QByteArray& profile) {
    VImage copy = image.copy();
    vips_image_set_blob_copy(copy.get_image(), VIPS_META_ICC_NAME, profile.constData(),
                             static_cast<std::size_t>(profile.size()));
    return copy;
}

QByteArray file(const VImage& image, const char* format) {
    void* data = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(format, &data, &size);
    const QByteArray bytes(static_cast<const char*>(data), static_cast<qsizetype>(size));
    g_free(data);
    return bytes;
}

VImage decoded(const QByteArray& file) {
    platform::startImageLibrary();
    return VImage::new_from_buffer(file.constData(), static_cast<std::size_t>(file.size()), "").copy_memory();
}

Color patchColor(const VImage& image, int index, int columns, int side) {
    return image.getpoint((index % columns) * side + side / 2, (index / columns) * side + side / 2);
}

std::vector<JPEGSegment> segments(const QByteArray& jpeg) {
    std::vector<JPEGSegment> found;
    for (qsizetype at = 2; at + 4 <= jpeg.size() && static_cast<unsigned char>(jpeg[at]) == 0xFF;) {
        const auto marker = static_cast<unsigned char>(jpeg[at + 1]);
        const auto length = qFromBigEndian<quint16>(jpeg.constData() + at + 2);
        found.push_back({marker, jpeg.mid(at + 4, length - 2)});
        if (marker == kStartOfScan)
            break;
        at += 2 + length;
    }
    return found;
}

QByteArray embeddedProfile(const QByteArray& jpeg) {
    const QByteArray identifier("ICC_PROFILE\0", 12);
    QByteArray profile;
    int count = 0;
    int stated = 0;
    for (const JPEGSegment& segment : segments(jpeg)) {
        if (segment.marker != kAPP2 || !segment.payload.startsWith(identifier))
            continue;
        const auto number = static_cast<unsigned char>(segment.payload[12]);
        stated = static_cast<unsigned char>(segment.payload[13]);
        if (number != ++count)
            return {};
        profile += segment.payload.mid(14);
    }
    return count == stated ? profile : QByteArray();
}

} // namespace test_support
