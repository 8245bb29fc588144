#include "platform/Image.h"

#include "platform/JPEGSegments.h"
#include "platform/Pixels.h"
#include "platform/TIFFDirectory.h"

#include <malloc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <exception>
#include <limits>
#include <mutex>
#include <string_view>
#include <utility>

namespace platform {

using vips::VImage;

namespace {

constexpr char kLogDomain[] = "VIPS";

constexpr std::string_view kJPEGLoader = "VipsForeignLoadJpegBuffer";
constexpr std::string_view kPNGLoader = "VipsForeignLoadPngBuffer";
constexpr std::string_view kTIFFLoader = "VipsForeignLoadTiffBuffer";
constexpr std::string_view kWebPLoader = "VipsForeignLoadWebpBuffer";
constexpr std::string_view kHEIFLoader = "VipsForeignLoadHeifBuffer";
/// The only ones that data is handed to: those of the formats that photographs come in.
constexpr std::array kLoaders{kJPEGLoader, kPNGLoader, kTIFFLoader, kWebPLoader, kHEIFLoader};

/// What holds the header of most files.
constexpr std::uint64_t kBeginning = std::uint64_t{256} << 10;

/// What an image may measure: most are decoded a few lines at a time, and only the time that it takes bounds
/// them.
constexpr std::uint64_t kMostPixels = std::uint64_t{1} << 30;
/// Twice what a JPEG holds on a side. Of longer lines it takes too many at once to draw an image small.
constexpr int kLongestSide = 1 << 17;
/// A file that is so small for so many pixels holds no photograph: it is made to keep a decoder busy.
constexpr std::uint64_t kManyPixels = std::uint64_t{1} << 28;
constexpr std::uint64_t kMostPixelsPerByte = 100;
/// Each block of 8 by 8 pixels of a JPEG takes a bit at least: a smaller file lacks most of its picture,
/// although its end may look whole.
constexpr std::uint64_t kMostPixelsPerByteOfJPEG = std::uint64_t{8} * 8 * 8;
/// What a decoder may hold of an image at once.
constexpr std::uint64_t kMostBytesHeld = std::uint64_t{896} << 20;
/// Each scan passes the whole image; encoders make a dozen.
constexpr int kMostScans = 100;

/// TIFF 6.0, section 2, and BigTIFF.
constexpr std::array<QByteArrayView, 4> kTIFFBeginnings{
    QByteArrayView("II*\0", 4), QByteArrayView("MM\0*", 4), QByteArrayView("II+\0", 4),
    QByteArrayView("MM\0+", 4)};

/// PNG, section 11.2.5: the empty chunk that ends a file, with its length and check sum.
constexpr QByteArrayView kPNGEnd("\0\0\0\0IEND\xAE\x42\x60\x82", 12);

/// Up to this size a JPEG gets codes of its own, which make it some 8 per cent smaller: the encoder holds the
/// whole image for that, in 6 bytes a pixel.
constexpr std::uint64_t kMostPixelsWithOwnCodes = std::uint64_t{1} << 22;

/// Malloc's own to begin with (mallopt(3)): setting it says that it must not grow.
constexpr int kMallocsTrimThreshold = 128 * 1024;

constexpr double kQualitySteps = 100;

/// Exif 2.3, 4.6.5, tag 36867, as libvips names and as Exif writes it.
constexpr char kCaptureTimeField[] = "exif-ifd2-DateTimeOriginal";
const QString kExifTimeFormat = QStringLiteral("yyyy:MM:dd HH:mm:ss");

/// What libvips logs when it blackens pixels that could not be decoded, before it makes that an error.
constexpr std::string_view kBlackened = "error in tile";

/// Gives back what libvips keeps for the calling thread, which may be about to end.
struct ThreadCleanup {
    ~ThreadCleanup() { vips_thread_shutdown(); }
};

/// Damage that a decoder notices is an error, so that no half of a picture goes out as a whole one.
vips::VOption* loadOptions() {
    return VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL)->set("fail_on", VIPS_FAIL_ON_ERROR);
}

/// What an image is read from.
struct Bytes {
    QByteArray data;
    std::shared_ptr<const ImageFile> file; ///< In place of the data, if it is a TIFF.

    std::uint64_t size() const { return file ? file->size() : static_cast<std::uint64_t>(data.size()); }
};

VImage load(const Bytes& bytes, vips::VOption* options) {
    if (bytes.file)
        return VImage::tiffload_source(bytes.file->source(), options);
    const QByteArray& data = bytes.data;
    return VImage::new_from_buffer(data.constData(), static_cast<std::size_t>(data.size()), "", options);
}

/// The name of what loads the data; empty where that is none of `kLoaders`.
std::string_view loaderOf(const QByteArray& data) {
    startImageLibrary();
    const ThreadCleanup cleanup;
    const char* const found =
        vips_foreign_find_load_buffer(data.constData(), static_cast<std::size_t>(data.size()));
    const auto* const loader = std::find(kLoaders.begin(), kLoaders.end(), found ? found : "");
    if (loader != kLoaders.end())
        return *loader;
    vips_error_clear();
    return {};
}

/// libvips itself looks for what may stand at the file's end.
bool isTIFF(const QByteArray& beginning) {
    return std::any_of(kTIFFBeginnings.begin(), kTIFFBeginnings.end(),
                       [&beginning](QByteArrayView known) { return beginning.startsWith(known); });
}

std::uint64_t pixelCount(const VImage& image) {
    return static_cast<std::uint64_t>(image.width()) * static_cast<std::uint64_t>(image.height());
}

/// What a decoder holds of the image at once, at most.
std::uint64_t bytesHeld(const VImage& header, std::string_view loader) {
    constexpr std::uint64_t kWebPSize = 4 + 4; // The decoder's own pixels, and those that it delivers.
    constexpr std::uint64_t kHEIFCopies = 3;   // The codec's, the container's, and the delivered ones.
    const std::uint64_t pixels = pixelCount(header);
    const std::uint64_t pixelSize = VIPS_IMAGE_SIZEOF_PEL(header.get_image());
    if (loader == kWebPLoader)
        return pixels * kWebPSize;
    if (loader == kHEIFLoader)
        return pixels * pixelSize * kHEIFCopies;
    if (header.get_typeof("interlaced") == 0)
        return 0;
    return pixels * pixelSize * (loader == kJPEGLoader ? sizeof(std::int16_t) : 1); // A JPEG's coefficients.
}

bool isWithinBounds(const VImage& header, std::string_view loader, const Bytes& bytes) {
    const std::uint64_t pixels = pixelCount(header);
    if (std::max(header.width(), header.height()) > kLongestSide || pixels > kMostPixels ||
        bytesHeld(header, loader) > kMostBytesHeld)
        return false;
    if (pixels > kManyPixels && pixels / kMostPixelsPerByte > bytes.size())
        return false;
    if (loader != kJPEGLoader)
        return true;
    return pixels / kMostPixelsPerByteOfJPEG <= bytes.size() &&
           (header.get_typeof("interlaced") == 0 || scanCount(bytes.data) <= kMostScans);
}

std::optional<TIFFDirectory> directoryOf(const Bytes& bytes) {
    if (!bytes.file)
        return TIFFDirectory::read(bytes.data);
    return TIFFDirectory::read(bytes.size(),
                               [&file = *bytes.file](std::uint64_t position, std::uint64_t count) {
                                   return file.bytes(position, count);
                               });
}

/// What the component behind the colour is; without a value where the file shows that it was cut off,
/// although it may hold all pixels: the colour profile could be what is missing. The other decoders tell by
/// themselves.
std::optional<Pixels::Extra> extraComponent(const Bytes& bytes, std::string_view loader) {
    if (loader == kPNGLoader && bytes.data.lastIndexOf(kPNGEnd) < 0)
        return std::nullopt;
    if (loader != kTIFFLoader)
        return Pixels::Extra::Alpha;
    const auto directory = directoryOf(bytes);
    if (!directory)
        return std::nullopt;
    return directory->extraSample == TIFFDirectory::ExtraSample::Unspecified ? Pixels::Extra::NoAlpha
                                                                             : Pixels::Extra::Alpha;
}

/// How much smaller a JPEG decoder may deliver the image right away: half of that is left to the better
/// filter.
int shrinkOnLoad(double reduction) {
    for (const int shrink : {8, 4, 2}) {
        if (reduction >= 2 * shrink)
            return shrink;
    }
    return 1;
}

/// What the encoder calls quality: 1 to 100. Below that it would silently take another one.
int encoderQuality(double quality) {
    if (!(quality > 0)) // Also where it is not a number.
        return 1;
    return std::max(1, static_cast<int>(std::lround(std::min(quality, 1.0) * kQualitySteps)));
}

struct BlobRelease {
    void operator()(VipsBlob* blob) const { vips_area_unref(VIPS_AREA(blob)); }
};
using Blob = std::unique_ptr<VipsBlob, BlobRelease>;

/// The blob's bytes, as long as it lives: nothing is copied.
QByteArray bytesOf(const Blob& blob) {
    std::size_t size = 0;
    const auto* data = static_cast<const char*>(vips_blob_get(blob.get(), &size));
    return QByteArray::fromRawData(data, static_cast<qsizetype>(size));
}

/// The encoder drops the profile along with all metadata, so the profile is put back.
std::optional<QByteArray> encoded(const Pixels& pixels, double quality) {
    const bool hasOwnCodes = pixelCount(pixels.image()) <= kMostPixelsWithOwnCodes;
    const Blob jpeg(pixels.image().jpegsave_buffer(VImage::option()
                                                       ->set("Q", encoderQuality(quality))
                                                       ->set("optimize_coding", hasOwnCodes)
                                                       ->set("strip", true)));
    if (pixels.profile())
        return withICCProfile(bytesOf(jpeg), *pixels.profile());
    return QByteArray(bytesOf(jpeg).constData(), bytesOf(jpeg).size());
}

/// Gives back what malloc keeps free between what it still uses: it would add up from image to image.
struct HeapTrim {
    ~HeapTrim() { ::malloc_trim(0); }
};

/// libvips takes this setting as an option of a command only.
void setTileHeight() {
    char program[] = "";
    char option[] = "--vips-tile-height=64";
    std::array<char*, 3> words{program, option, nullptr};
    auto count = static_cast<int>(words.size()) - 1;
    char** first = words.data();
    GOptionGroup* const group = g_option_group_new("vips", "", "", nullptr, nullptr);
    vips_add_option_entries(group);
    GOptionContext* const context = g_option_context_new(nullptr);
    g_option_context_set_main_group(context, group);
    g_option_context_parse(context, &count, &first, nullptr);
    g_option_context_free(context);
}

/// The result of `make`, or no value where libvips throws, or memory runs out.
template <typename Make>
auto unlessItFails(Make&& make) -> decltype(make()) {
    const ThreadCleanup cleanup;
    try {
        return make();
    } catch (const std::exception&) {
        vips_error_clear();
        return {};
    }
}

} // namespace

struct Image::Source {
    Bytes bytes;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool isJPEG = false;
    Pixels::Extra extra = Pixels::Extra::Alpha;
};

namespace {

/// How often libvips has blackened pixels in this process. Its log has one handler, that of whichever copy of
/// this library came last: the counter is one for all of them.
std::atomic<unsigned>& blackenings() {
    static std::atomic<unsigned>& counter = []() -> std::atomic<unsigned>& {
        static std::atomic<unsigned> own{0};
        const GQuark name = g_quark_from_string("quillmark-blackenings");
        if (void* const known = g_type_get_qdata(VIPS_TYPE_IMAGE, name))
            return *static_cast<std::atomic<unsigned>*>(known);
        g_type_set_qdata(VIPS_TYPE_IMAGE, name, &own);
        return own;
    }();
    return counter;
}

/// Damaged files would write thousands of warnings: nothing is passed on.
void takeLog(const gchar*, GLogLevelFlags, const gchar* message, gpointer) {
    if (message && std::string_view(message).starts_with(kBlackened))
        ++blackenings();
}

template <typename Source>
VImage loaded(const Source& source, double reduction) {
    vips::VOption* options = loadOptions();
    if (source.isJPEG)
        options->set("shrink", shrinkOnLoad(reduction));
    return load(source.bytes, options);
}

/// What `make` makes of the pixels, of a JPEG perhaps already smaller by a part of `reduction`; none where
/// they can't be decoded whole.
template <typename Source, typename Make>
auto decodedWhole(const Source& source, double reduction, Make&& make)
    -> decltype(make(std::declval<Pixels>())) {
    return unlessItFails([&] {
        const unsigned before = blackenings();
        auto made = make(Pixels(loaded(source, reduction), source.extra));
        if (blackenings() == before)
            return made;
        // Where one of libvips' threads meets the damage, now and then another one takes the blackened pixels
        // for good, and no error comes. A thread alone always tells. The damage may also be another
        // picture's.
        const VImage image = loaded(source, reduction).copy();
        vips_image_set_int(image.get_image(), VIPS_META_CONCURRENCY, 1);
        return make(Pixels(image, source.extra));
    });
}

} // namespace

void startImageLibrary() {
    static std::once_flag once;
    std::call_once(once, [] {
        g_log_set_handler(kLogDomain, G_LOG_LEVEL_MASK, takeLog, nullptr);
        if (VIPS_INIT("") != 0)
            return;
        // Left alone, malloc takes the size of the pixel buffers for a reason to keep free memory, in an
        // arena for each of the decoders' threads: the peak would rise from image to image.
        ::mallopt(M_TRIM_THRESHOLD, kMallocsTrimThreshold);
        vips_block_untrusted_set(TRUE);
        vips_cache_set_max(0); // No image comes twice.
        // Half of libvips' own height for what is computed at once: the lines that it is made of are held
        // meanwhile, and lower tiles take no longer.
        setTileHeight();
    });
}

std::unique_ptr<Image> Image::open(const QByteArray& data) {
    return open(Source{.bytes = {data, nullptr}}, loaderOf(data));
}

std::unique_ptr<Image> Image::openFile(const std::shared_ptr<const ImageFile>& file) {
    const QByteArray beginning = file->bytes(0, kBeginning);
    if (isTIFF(beginning)) {
        startImageLibrary();
        return open(Source{.bytes = {{}, file}}, kTIFFLoader);
    }
    return loaderOf(beginning).empty() ? nullptr : open(file->bytes(0, file->size()));
}

std::unique_ptr<Image> Image::open(Source source, std::string_view loader) {
    if (loader.empty())
        return nullptr;
    return unlessItFails([&]() -> std::unique_ptr<Image> {
        const VImage header = load(source.bytes, loadOptions());
        const auto extra = extraComponent(source.bytes, loader);
        if (!extra || !isWithinBounds(header, loader, source.bytes))
            return nullptr;
        source.width = static_cast<std::uint32_t>(header.width());
        source.height = static_cast<std::uint32_t>(header.height());
        source.isJPEG = loader == kJPEGLoader;
        source.extra = *extra;
        return std::unique_ptr<Image>(new Image(std::make_unique<Source>(std::move(source))));
    });
}

bool Image::isReadWhole(const ImageFile& file) {
    return !isTIFF(file.bytes(0, kBeginning));
}

std::uint64_t Image::bytesHeld(const ImageFile& file) {
    const QByteArray beginning = file.bytes(0, kBeginning);
    if (isTIFF(beginning))
        return file.size(); // All of it may be a single strip.
    const std::string_view loader = loaderOf(beginning);
    if (loader.empty())
        return 0;
    const auto decoding = unlessItFails([&]() -> std::optional<std::uint64_t> {
        return platform::bytesHeld(load({beginning, nullptr}, loadOptions()), loader);
    });
    return decoding ? file.size() + *decoding : std::numeric_limits<std::uint64_t>::max();
}

Image::Image(std::unique_ptr<Source> source)
    : source_(std::move(source)) {}

Image::~Image() = default;

std::uint32_t Image::width() const {
    return source_->width;
}

std::uint32_t Image::height() const {
    return source_->height;
}

std::optional<QByteArray> Image::scaledJPEG(std::int32_t width, std::int32_t height,
                                            const ColorSpace& colorSpace, double quality) const {
    if (width < 1 || height < 1)
        return std::nullopt;
    const HeapTrim afterwards;
    const double reduction = std::min(double(source_->width) / width, double(source_->height) / height);
    return decodedWhole(*source_, reduction, [&](const Pixels& pixels) {
        return encoded(pixels.scaledTo(width, height).convertedTo(colorSpace), quality);
    });
}

std::optional<QByteArray> Image::asJPEG(double quality) const {
    const HeapTrim afterwards;
    return decodedWhole(*source_, 1,
                        [&](const Pixels& pixels) { return encoded(pixels.withEightBits(), quality); });
}

QImage Image::uprightWithin(std::int32_t side, const ColorSpace& colorSpace) const {
    const double scale = std::min(1.0, double(side) / std::max(source_->width, source_->height));
    const auto scaled = [scale](std::uint32_t length) {
        return std::max(1, static_cast<int>(std::lround(length * scale)));
    };
    return decodedWhole(*source_, 1 / scale, [&](const Pixels& decoded) {
        const Pixels pixels =
            decoded.scaledTo(scaled(source_->width), scaled(source_->height)).convertedTo(colorSpace);
        // Turned in memory: the file can only be decoded from its top to its bottom.
        const VImage upright = pixels.image().copy_memory().autorot();
        std::size_t size = 0;
        void* const rows = upright.write_to_memory(&size);
        const QImage image(static_cast<const uchar*>(rows), upright.width(), upright.height(),
                           static_cast<qsizetype>(size) / upright.height(), QImage::Format_RGB888, &g_free,
                           rows);
        return image.convertToFormat(QImage::Format_RGB32);
    });
}

QDateTime Image::captureTime() const {
    return unlessItFails([&]() -> QDateTime {
        const VImage header = load(source_->bytes, loadOptions());
        if (header.get_typeof(kCaptureTimeField) == 0)
            return {};
        // What follows the time is libvips's description of the field.
        const QString text = QString::fromLatin1(header.get_string(kCaptureTimeField));
        return QDateTime::fromString(text.left(kExifTimeFormat.size()), kExifTimeFormat);
    });
}

} // namespace platform
