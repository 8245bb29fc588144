#include "platform/Image.h"

#include "platform/JPEGSegments.h"

#include <vips/vips8>

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <string_view>
#include <utility>

namespace platform {

using vips::VImage;

namespace {

/// The loaders that data is handed to: those of the formats that photographs come in.
constexpr std::array<std::string_view, 5> kLoaders{
    "VipsForeignLoadJpegBuffer", "VipsForeignLoadPngBuffer", "VipsForeignLoadTiffBuffer",
    "VipsForeignLoadWebpBuffer", "VipsForeignLoadHeifBuffer"};

} // namespace

struct Image::Source {
    QByteArray data;
    VImage header;
};

void startImageLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        VIPS_INIT("quillmark");
        vips_block_untrusted_set(TRUE);
        vips_cache_set_max(0);
        g_log_set_handler("VIPS", G_LOG_LEVEL_MASK, [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {}, nullptr);
    });
}

std::unique_ptr<Image> Image::open(const QByteArray& data) {
    startImageLibrary();
    const char* loader = vips_foreign_find_load_buffer(data.constData(), static_cast<std::size_t>(data.size()));
    if (!loader || std::find(kLoaders.begin(), kLoaders.end(), loader) == kLoaders.end())
        return nullptr;
    try {
        auto source = std::make_unique<Source>();
        source->data = data;
        source->header = VImage::new_from_buffer(data.constData(), static_cast<std::size_t>(data.size()), "[access=sequential,fail_on=error]");
        return std::unique_ptr<Image>(new Image(std::move(source)));
    } catch (const vips::VError&) {
        vips_error_clear();
        return nullptr;
    }
}

Image::Image(std::unique_ptr<Source> source) : source_(std::move(source)) {}
Image::~Image() = default;
std::uint32_t Image::width() const { return static_cast<std::uint32_t>(source_->header.width()); }
std::uint32_t Image::height() const { return static_cast<std::uint32_t>(source_->header.height()); }

std::optional<QByteArray> Image::scaledJPEG(std::int32_t width, std::int32_t height, const ColorSpace& colorSpace,
                                            double quality) const {
    try {
        VImage image = VImage::thumbnail_buffer(vips_blob_new(nullptr, source_->data.constData(), source_->data.size()), width, VImage::option()->set("height", height)->set("size", VIPS_SIZE_FORCE)->set("no_rotate", true)->set("option_string", "[fail_on=error]"));
        VipsBlob* blob = image.jpegsave_buffer(VImage::option()->set("Q", int(std::lround(quality * 100)))->set("strip", true));
        QByteArray jpeg(static_cast<const char*>(VIPS_AREA(blob)->data), qsizetype(VIPS_AREA(blob)->length));
        vips_area_unref(VIPS_AREA(blob));
        return withICCProfile(jpeg, colorSpace.iccProfile());
    } catch (const vips::VError&) {
        vips_error_clear();
        return std::nullopt;
    }
}

std::optional<QByteArray> Image::asJPEG(double quality) const {
    return scaledJPEG(int(width()), int(height()), *ColorSpace::sRGB(), quality);
}

} // namespace platform
