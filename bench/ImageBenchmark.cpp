// What it costs to prepare a photograph of 24 megapixels: image_benchmark [IMAGES]
//
// A line for each format: the median time of IMAGES preparations (5 without the argument), drawn into a box
// of 1280 by 1280 and in their own size, and the process's peak memory so far. Run it with 5 and with 200
// images: the peak must not depend on their number.

#include "platform/Image.h"

#include <vips/vips8>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

using platform::ColorSpace;
using platform::Image;
using vips::VImage;

namespace {

constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr int kBoxWidth = 1280;
constexpr int kBoxHeight = 853;
constexpr double kQuality = 1.0;

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

QByteArray file(const VImage& image, const char* format) {
    void* data = nullptr;
    std::size_t size = 0;
    image.write_to_buffer(format, &data, &size);
    const QByteArray bytes(static_cast<const char*>(data), static_cast<qsizetype>(size));
    g_free(data);
    return bytes;
}

double medianMilliseconds(int count, const std::function<bool()>& prepare) {
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        const auto start = std::chrono::steady_clock::now();
        if (!prepare())
            std::exit(EXIT_FAILURE);
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
        times.push_back(taken.count());
    }
    std::nth_element(times.begin(), times.begin() + count / 2, times.end());
    return times[static_cast<std::size_t>(count / 2)];
}

long peakMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

} // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    platform::startImageLibrary();
    const VImage picture = photograph();
    std::printf("%-24s %12s %12s %12s\n", "format", "in box, ms", "own size, ms", "peak, MB");
    for (const char* format : {".jpg[Q=90]", ".jpg[Q=90,interlace]", ".tif", ".png[compression=1]"}) {
        const QByteArray data = file(picture, format);
        const double inBox = medianMilliseconds(count, [&] {
            return Image::open(data)
                ->scaledJPEG(kBoxWidth, kBoxHeight, *ColorSpace::sRGB(), kQuality)
                .has_value();
        });
        const double ownSize =
            medianMilliseconds(count, [&] { return Image::open(data)->asJPEG(kQuality).has_value(); });
        std::printf("%-24s %12.0f %12.0f %12ld\n", format, inBox, ownSize, peakMegabytes());
    }
}
