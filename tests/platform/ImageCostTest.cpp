// What a photograph of 24 megapixels costs, in a release build: memory above that of the idle process, and
// time against a command that does the same work. A program of its own: the high-water mark is the whole
// process's.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <limits>
#include <string>

using platform::ColorSpace;
using platform::Image;
using vips::VImage;

namespace {

/// Of Debian's lomiri-wallpapers-20.04.
constexpr char kPhotograph[] = "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg";
constexpr int kWidth = 6000;
constexpr int kHeight = 4000;
constexpr double kBest = 1.0;
constexpr int kRounds = 5;

class ImageCost : public testing::Test {
protected:
    static void SetUpTestSuite() {
        // Made by another process: this one is idle until the first measurement.
        const QString photograph = QString::fromLatin1(kPhotograph);
        ASSERT_EQ(QProcess::execute(QStringLiteral("vipsthumbnail"),
                                    {photograph, QStringLiteral("--size=%1x%2!").arg(kWidth).arg(kHeight),
                                     QStringLiteral("--output=%1[Q=92,strip]").arg(original())}),
                  0);
        platform::startImageLibrary();
    }

    static QString original() {
        static const QTemporaryDir folder;
        return folder.filePath(QStringLiteral("original.jpg"));
    }

    static QByteArray contents() {
        QFile file(original());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// As the plug-in prepares what it is offered, from the file's bytes to the new ones.
    static bool prepare(int box) {
        const auto image = Image::open(contents());
        return image && image->scaledJPEG(box, box * kHeight / kWidth, *ColorSpace::sRGB(), kBest);
    }
};

class ImageCostInABox : public ImageCost, public testing::WithParamInterface<int> {};

long statusKilobytes(const char* key) {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(key))
            return line.mid(line.indexOf(':') + 1).trimmed().split(' ').front().toLong();
    }
    return 0;
}

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double secondsOf(int who, const std::function<void()>& work) {
    const double start = cpuSeconds(who);
    work();
    return cpuSeconds(who) - start;
}

} // namespace

INSTANTIATE_TEST_SUITE_P(Box, ImageCostInABox, testing::Values(1280, 2048),
                         testing::PrintToStringParamName());

TEST_P(ImageCostInABox, StaysBelow50MebibytesAboveTheIdleProcess) {
    constexpr long kMostKilobytes = 50 * 1024;
    const long idle = statusKilobytes("VmRSS");
    ASSERT_GT(idle, 0);
    ASSERT_TRUE(prepare(GetParam()));
    const long peak = statusKilobytes("VmHWM") - idle;
    std::cout << peak / 1024 << " MiB above " << idle / 1024 << '\n';
    EXPECT_LT(peak, kMostKilobytes);
}

TEST_F(ImageCost, StaysBelow50MebibytesInItsOwnSize) {
    constexpr long kMostKilobytes = 50 * 1024;
    const long idle = statusKilobytes("VmRSS");
    ASSERT_TRUE(Image::open(contents())->asJPEG(kBest));
    const long peak = statusKilobytes("VmHWM") - idle;
    std::cout << peak / 1024 << " MiB above " << idle / 1024 << '\n';
    EXPECT_LT(peak, kMostKilobytes);
}

TEST_P(ImageCostInABox, IsBelowThatOfACommandForEachImage) {
    // CPU time, and the best of several rounds: what else the machine does is not compared.
    constexpr double kLargestShare = 0.9;
    const std::string profile = QUILLMARK_SOURCE_DIR "/resources/sRGB.icc";
    double ours = std::numeric_limits<double>::max();
    double theirs = ours;
    for (int i = 0; i < kRounds; ++i) {
        ours = std::min(ours, secondsOf(RUSAGE_SELF, [] { ASSERT_TRUE(prepare(GetParam())); }));
        theirs = std::min(
            theirs, secondsOf(RUSAGE_CHILDREN, [&] {
                ASSERT_EQ(QProcess::execute(
                              QStringLiteral("vipsthumbnail"),
                              {original(), QStringLiteral("--size=%1x%1").arg(GetParam()),
                               QStringLiteral("--eprofile=") + QString::fromStdString(profile),
                               QStringLiteral("--output=%1.out.jpg[Q=100,optimize_coding]").arg(original())}),
                          0);
            }));
    }
    std::cout << ours * 1000 << " ms against " << theirs * 1000 << " ms\n";
    EXPECT_LT(ours, kLargestShare * theirs);
}
