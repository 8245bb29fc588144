// What it costs to prepare a photograph of 24 megapixels, by its format and the box that it is drawn into:
// decoding, scaling, encoding.

#include "platform/Image.h"

#include <benchmark/benchmark.h>
#include <vips/vips8>

#include <map>
#include <string>
#include <vector>

using platform::ColorSpace;
using platform::Image;
using vips::VImage;

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr double kQuality = 0.83;

struct Format {
    const char* name;
    const char* saver; ///< As libvips names it, with its options.
    bool hasSixteenBits = false;
};
constexpr Format kFormats[] = {
    {"JPEG", ".jpg[Q=90]"},
    {"progressive JPEG", ".jpg[Q=90,interlace]"},
    {"TIFF", ".tif"},
    {"16-bit TIFF", ".tif", true},
    {"PNG", ".png[compression=1]"},
    {"WebP", ".webp[Q=75]"},
};

struct Box {
    const char* name;
    int width; ///< 0: the image keeps its own size.
    int height;
};
constexpr Box kBoxes[] = {{"1280", 1280, 853}, {"2048", 2048, 1365}, {"own size", 0, 0}};

/// As rough as a photograph is to an encoder: noise on a larger scale than a pixel.
VImage photograph() {
    std::vector<VImage> bands;
    for (const int seed : {1, 2, 3}) {
        const VImage noise = VImage::gaussnoise(
            kWidth / 8, kHeight / 8, VImage::option()->set("mean", 128)->set("sigma", 50)->set("seed", seed));
        bands.push_back(noise.resize(8));
    }
    return VImage::bandjoin(bands)
        .cast(VIPS_FORMAT_UCHAR)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

/// The photograph as a file; made once, since all boxes need it.
const QByteArray& file(const Format& format) {
    static std::map<std::string, QByteArray> files;
    QByteArray& bytes = files[format.name];
    if (bytes.isEmpty()) {
        static const VImage picture = photograph().copy_memory();
        const VImage pixels =
            format.hasSixteenBits ? picture.colourspace(VIPS_INTERPRETATION_RGB16) : picture;
        void* data = nullptr;
        std::size_t size = 0;
        pixels.write_to_buffer(format.saver, &data, &size);
        bytes = QByteArray(static_cast<const char*>(data), static_cast<qsizetype>(size));
        g_free(data);
    }
    return bytes;
}

void prepare(benchmark::State& state, const Format& format, const Box& box) {
    const QByteArray& data = file(format);
    for ([[maybe_unused]] const auto iteration : state) {
        const auto image = Image::open(data);
        const auto jpeg = box.width == 0
                              ? image->asJPEG(kQuality)
                              : image->scaledJPEG(box.width, box.height, *ColorSpace::sRGB(), kQuality);
        if (!jpeg)
            return state.SkipWithError("not prepared");
    }
}

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    platform::startImageLibrary();
    for (const Format& format : kFormats) {
        for (const Box& box : kBoxes) {
            const std::string name = std::string(format.name) + ", " + box.name;
            benchmark::RegisterBenchmark(name.c_str(), prepare, format, box)
                ->UseRealTime()
                ->MeasureProcessCPUTime()
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
}
