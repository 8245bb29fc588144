// Image data that is damaged, or made to do harm: never a crash, a hang, or more memory than a machine has to
// spare. A program of its own: the high-water mark of memory is the whole process's.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <array>
#include <ctime>
#include <iostream>
#include <random>
#include <string_view>

using platform::ColorSpace;
using platform::Image;
using test_support::file;
using test_support::gradient;
using vips::VImage;

namespace {

constexpr double kBest = 1.0;
constexpr std::uint32_t kSeed = 20080515;
constexpr int kMutationsOfEach = 50;
constexpr double kLongestSeconds = 5;
constexpr long kMostKilobytes = 1024 * 1024;

/// Of every kind of file that is decoded.
constexpr std::array kWriters{".jpg[Q=90]",
                              ".jpg[Q=90,interlace]",
                              ".jpg[Q=80,subsample_mode=on,restart_interval=2]",
                              ".png",
                              ".png[interlace]",
                              ".png[palette]",
                              ".png[bitdepth=1]",
                              ".tif",
                              ".tif[compression=lzw,predictor=horizontal]",
                              ".tif[compression=deflate,tile]",
                              ".tif[compression=jpeg]",
                              ".tif[compression=packbits]",
                              ".tif[compression=ccittfax4,bitdepth=1]",
                              ".tif[bigtiff,tile,pyramid]",
                              ".webp[Q=80]",
                              ".webp[lossless]",
                              ".heic",
                              ".heic[lossless]",
                              ".avif[compression=av1,speed=9]",
                              ".avif[compression=av1,lossless,speed=9]"};

/// CPU time: what else the machine does is no hang.
double secondsUsed() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

long peakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// As the plug-in treats what its host offers; whether something came out.
bool isPrepared(const QByteArray& data) {
    const auto image = Image::open(data);
    if (!image)
        return false;
    const bool isScaled = image->scaledJPEG(20, 15, *ColorSpace::sRGB(), kBest).has_value();
    return image->asJPEG(kBest).has_value() || isScaled;
}

using Random = std::mt19937;

qsizetype below(Random& random, qsizetype bound) {
    return static_cast<qsizetype>(random() % static_cast<std::uint32_t>(bound));
}

/// Half of the damage goes into the first bytes, where sizes and offsets stand.
qsizetype position(Random& random, const QByteArray& data) {
    constexpr qsizetype kHeader = 200;
    return below(random, random() % 2 ? data.size() : std::min(data.size(), kHeader));
}

char hostileByte(Random& random) {
    constexpr std::array kExtremes{'\x00', '\x01', '\x7F', '\x80', '\xFF'};
    return random() % 2 ? kExtremes[random() % kExtremes.size()] : static_cast<char>(random());
}

/// Bytes changed, runs overwritten, pieces cut out, doubled, moved; never what it was.
QByteArray mutated(const QByteArray& original, Random& random) {
    QByteArray data = original;
    do {
        const auto count = 1 + below(random, 8);
        for (qsizetype i = 0; i < count; ++i) {
            const qsizetype at = position(random, data);
            const qsizetype length = 1 + below(random, std::min<qsizetype>(64, data.size() - at));
            switch (random() % 6) {
            case 0:
            case 1:
                data[at] = hostileByte(random);
                break;
            case 2:
                data.replace(at, length, QByteArray(length, hostileByte(random)));
                break;
            case 3:
                if (data.size() > 2 * length)
                    data.remove(at, length);
                break;
            case 4:
                data.insert(at, data.mid(position(random, data), length));
                break;
            default:
                data[at] = static_cast<char>(data[at] ^ (1 << random() % 8));
                break;
            }
        }
    } while (data == original);
    return data;
}

} // namespace

TEST(MalformedImages, NeverCrashHangOrTakeMoreThanAGigabyte) {
    Random random(kSeed);
    const VImage picture = gradient(90, 60);
    int count = 0;
    int prepared = 0;
    double longest = 0;
    for (const char* writer : kWriters) {
        const bool isFax = std::string_view(writer).find("ccitt") != std::string_view::npos;
        const QByteArray original = file(isFax ? picture.extract_band(0) : picture, writer);
        ASSERT_TRUE(isPrepared(original)) << writer;
        for (int i = 0; i < kMutationsOfEach; ++i) {
            const QByteArray data = mutated(original, random);
            const double start = secondsUsed();
            prepared += isPrepared(data);
            const double taken = secondsUsed() - start;
            longest = std::max(longest, taken);
            ++count;
            ASSERT_LT(taken, kLongestSeconds) << writer << ", mutation " << i << " of seed " << kSeed;
            ASSERT_LT(peakKilobytes(), kMostKilobytes)
                << writer << ", mutation " << i << " of seed " << kSeed;
        }
    }
    std::cout << count << " images of seed " << kSeed << ", " << prepared << " prepared, at most " << longest
              << " s each, " << peakKilobytes() / 1024 << " MiB at the peak\n";
    EXPECT_GE(count, 1000);
    EXPECT_LT(prepared, count) << "some damage is noticed";
}
