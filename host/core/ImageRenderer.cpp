#include "host/core/ImageRenderer.h"

#include "platform/Image.h"

#include <vips/vips8>

#include <unistd.h>

#include <new>
#include <string_view>

namespace host {

using vips::VImage;

namespace {

constexpr int kUpright = 1; ///< Exif 2.3, 4.6.4, tag 274.

/// A picture to be turned is held as an image and as a TIFF at once, and other programs want to run.
constexpr std::uint64_t kShareOfMemory = 4;
/// Offsets in a classic TIFF have 32 bits; what surrounds the pixels needs some of them.
constexpr std::uint64_t kLargestClassicTIFF = 4'000'000'000;

/// A picture that is cut off must not become a whole TIFF with a grey part.
constexpr const char* kLoadOptions = "[fail_on=error]";

std::uint64_t pixelBytes(const VImage& image) {
    return VIPS_IMAGE_SIZEOF_IMAGE(image.get_image());
}

bool fitsIntoMemory(const VImage& image) {
    const auto memory = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                        static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    return pixelBytes(image) <= memory / kShareOfMemory;
}

/// Takes away what would have a reader turn the picture once more, and what is not the picture.
void removeDescriptions(const VImage& image) {
    const std::unique_ptr<char*, decltype(&g_strfreev)> fields(vips_image_get_fields(image.get_image()),
                                                               g_strfreev);
    for (char** field = fields.get(); *field; ++field) {
        const std::string_view name = *field;
        if (name != VIPS_META_ICC_NAME && (name.starts_with("exif-") || name.ends_with("-data")))
            vips_image_remove(image.get_image(), *field);
    }
}

RenderedImage uncompressedTIFF(const VImage& image) {
    VipsBlob* const blob =
        image.tiffsave_buffer(VImage::option()
                                  ->set("compression", VIPS_FOREIGN_TIFF_COMPRESSION_NONE)
                                  ->set("bigtiff", pixelBytes(image) > kLargestClassicTIFF));
    const std::shared_ptr<void> owner(blob,
                                      [](void* held) { vips_area_unref(static_cast<VipsArea*>(held)); });
    std::size_t length = 0;
    const void* const data = vips_blob_get(blob, &length);
    return {QByteArray::fromRawData(static_cast<const char*>(data), static_cast<qsizetype>(length)), owner};
}

std::optional<RenderedImage> upright(const QByteArray& bytes, QString& error) {
    const VImage stored =
        VImage::new_from_buffer(bytes.constData(), static_cast<std::size_t>(bytes.size()), kLoadOptions);
    if (vips_image_get_orientation(stored.get_image()) == kUpright)
        return RenderedImage{bytes, nullptr};
    if (!fitsIntoMemory(stored)) {
        error = QStringLiteral("it is too large to be turned upright");
        return std::nullopt;
    }
    // The copy's descriptions are its own: the opened image may be shared.
    const VImage turned = stored.autorot().copy();
    removeDescriptions(turned);
    return uncompressedTIFF(turned);
}

} // namespace

std::optional<RenderedImage> renderImage(const QByteArray& path, QString& error) {
    platform::startImageLibrary();
    try {
        const auto file = platform::ImageFile::open(path, &error);
        const auto bytes = file ? file->contents(error) : std::nullopt;
        if (!bytes)
            return std::nullopt;
        try {
            return upright(*bytes, error);
        } catch (const vips::VError&) {
            vips_error_clear();
            return RenderedImage{*bytes, nullptr};
        }
    } catch (const std::bad_alloc&) {
        error = QStringLiteral("it does not fit into memory");
        return std::nullopt;
    }
}

} // namespace host
