// What a picture looks like in another size: against another program's Lanczos filter, by structural
// similarity, colour difference and overshoot.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>
#include <QtGui/QPainter>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

using platform::ColorSpace;
using platform::Image;
using test_support::decoded;
using test_support::profileResource;
using vips::VImage;

namespace {

/// Of Debian's lomiri-wallpapers-20.04.
constexpr char kPhotograph[] = "/usr/share/backgrounds/Kleiber_by_Lukas_Baubkus.jpg";
constexpr double kBest = 1.0;
constexpr int kWidth = 2000;
constexpr int kHeight = 1333;

constexpr double kLeastSimilarity = 0.98;
constexpr double kLargestColorDifference = 1;
/// What the JPEG encoder adds at its best.
constexpr double kEncodersOvershoot = 2;

/// Circles whose frequency rises to the highest that pixels can hold, in the middle of each side.
VImage zonePlate() {
    return VImage::zone(kWidth, kHeight, VImage::option()->set("uchar", true));
}

/// Grey steps with sharp edges, up and down; none is black or white, so that nothing clips an overshoot.
VImage stepWedge() {
    constexpr std::array kSteps{60.0, 90.0, 70.0, 120.0, 80.0, 150.0, 90.0, 180.0, 60.0, 195.0};
    std::vector<VImage> steps;
    const VImage step = VImage::black(kWidth / int(kSteps.size()), kHeight);
    for (const double grey : kSteps)
        steps.push_back(step + grey);
    const VImage wedge = VImage::arrayjoin(steps, VImage::option()->set("across", int(kSteps.size())));
    // Turned by a few degrees every part of a pixel gets its edge.
    const VImage flat = wedge.rotate(7, VImage::option()->set("background", 100.0));
    return flat.extract_area((flat.width() - kWidth) / 2, (flat.height() - kHeight) / 2, kWidth, kHeight)
        .cast(VIPS_FORMAT_UCHAR);
}

/// Lines of text, from hardly readable to large.
VImage fineText() {
    QImage page(kWidth, kHeight, QImage::Format_RGB888);
    page.fill(Qt::white);
    QPainter painter(&page);
    painter.setPen(Qt::black);
    QFont font(QStringLiteral("DejaVu Sans"));
    for (int y = 20, size = 7; y < kHeight; size = size < 40 ? size + 1 : 7) {
        font.setPixelSize(size);
        painter.setFont(font);
        painter.drawText(
            10, y, QStringLiteral("The quick brown fox jumps over the lazy dog, 0123456789. ").repeated(8));
        y += size * 3 / 2;
    }
    painter.end();
    static_assert(kWidth * 3 % 4 == 0, "rows of QImage end at multiples of four bytes");
    return VImage::new_from_memory(page.bits(), std::size_t(page.sizeInBytes()), kWidth, kHeight, 3,
                                   VIPS_FORMAT_UCHAR)
        .copy()
        .copy_memory();
}

VImage photograph() {
    const VImage whole = VImage::new_from_file(kPhotograph);
    return whole.extract_area((whole.width() - kWidth) / 2, (whole.height() - kHeight) / 2, kWidth, kHeight);
}

VImage asRGB(const VImage& image) {
    return (image.bands() == 1 ? VImage::bandjoin({image, image, image}) : image)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

struct Box {
    int width;
    int height;
};
constexpr std::array kBoxes{Box{1280, 1280}, Box{1700, 1300}, Box{2560, 2560}};
constexpr std::array kProfiles{"sRGB.icc", "AdobeRGB1998.icc", "ProPhotoRGB.icc"};

QString resource(const char* name) {
    return QStringLiteral(QUILLMARK_SOURCE_DIR "/resources/") + QString::fromLatin1(name);
}

/// A picture's size in a box.
Box sizeIn(const Box& box, const Image& image) {
    const double scale = std::min(box.width / double(image.width()), box.height / double(image.height()));
    return {int(image.width() * scale), int(image.height() * scale)};
}

struct Drawing {
    Box box;
    const char* profile;
    VImage ours;
    VImage reference;
};

/// One picture in each of the boxes and colour spaces, as we draw it and as the other program does.
class Drawings {
public:
    explicit Drawings(const QString& file)
        : file_(file) {}

    std::vector<Drawing> make(const std::vector<Box>& boxes) {
        QFile data(file_);
        EXPECT_TRUE(data.open(QIODevice::ReadOnly));
        const auto image = Image::open(data.readAll());
        std::vector<Drawing> drawings;
        QByteArray jobs;
        for (const Box& box : boxes) {
            const Box size = sizeIn(box, *image);
            for (const char* profile : kProfiles) {
                const auto colorSpace = ColorSpace::fromICCProfile(profileResource(profile));
                drawings.push_back({box,
                                    profile,
                                    decoded(*image->scaledJPEG(size.width, size.height, *colorSpace, kBest)),
                                    {}});
                jobs += job(size, profile, pathOf(drawings.size()));
            }
        }
        draw(jobs);
        for (std::size_t i = 0; i < drawings.size(); ++i)
            drawings[i].reference =
                VImage::new_from_file(QFile::encodeName(pathOf(i + 1)).constData()).copy_memory();
        return drawings;
    }

private:
    QString pathOf(std::size_t number) const {
        return folder_.filePath(QStringLiteral("%1.png").arg(number));
    }

    QByteArray job(const Box& size, const char* profile, const QString& result) const {
        const bool isOwn = std::string_view(profile) == kProfiles.front();
        return QStringList{file_,
                           QString::number(size.width),
                           QString::number(size.height),
                           resource(kProfiles.front()),
                           isOwn ? QString() : resource(profile),
                           result}
                   .join(QLatin1Char('\t'))
                   .toUtf8() +
               '\n';
    }

    static void draw(const QByteArray& jobs) {
        constexpr int kMilliseconds = 100'000;
        QProcess program;
        program.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        program.start(QStringLiteral("/usr/bin/python3"),
                      {QStringLiteral(QUILLMARK_SOURCE_DIR "/tests/platform/resample_with_pillow.py")});
        program.write(jobs);
        program.closeWriteChannel();
        EXPECT_TRUE(program.waitForFinished(kMilliseconds) && program.exitCode() == 0);
    }

    const QString file_;
    const QTemporaryDir folder_;
};

VImage grey(const VImage& image) {
    return image.extract_band(0) * 0.299 + image.extract_band(1) * 0.587 + image.extract_band(2) * 0.114;
}

/// Wang, Bovik, Sheikh and Simoncelli (2004), with their constants, over the grey values.
double structuralSimilarity(const VImage& one, const VImage& other) {
    constexpr double kC1 = (0.01 * 255) * (0.01 * 255);
    constexpr double kC2 = (0.03 * 255) * (0.03 * 255);
    const auto local = [](const VImage& image) {
        return image.gaussblur(
            1.5, VImage::option()->set("min_ampl", 0.01)->set("precision", VIPS_PRECISION_FLOAT));
    };
    const VImage a = grey(one);
    const VImage b = grey(other);
    const VImage meanA = local(a);
    const VImage meanB = local(b);
    const VImage varianceA = local(a * a) - meanA * meanA;
    const VImage varianceB = local(b * b) - meanB * meanB;
    const VImage covariance = local(a * b) - meanA * meanB;
    return (((meanA * meanB * 2 + kC1) * (covariance * 2 + kC2)) /
            ((meanA * meanA + meanB * meanB + kC1) * (varianceA + varianceB + kC2)))
        .avg();
}

/// The mean CIEDE2000 between the colours of small areas: whether colours shift, whatever the finest detail's
/// contrast and the encoder's noise in single pixels.
double colorDifference(const VImage& one, const VImage& other, const char* profile) {
    constexpr double kArea = 4;
    const QByteArray path = QFile::encodeName(resource(profile));
    const auto lab = [&](const VImage& image) {
        return image.shrink(kArea, kArea)
            .icc_import(VImage::option()
                            ->set("input_profile", path.constData())
                            ->set("intent", VIPS_INTENT_RELATIVE));
    };
    return lab(one).dE00(lab(other)).avg();
}

void expectAsGood(const Drawing& drawing) {
    const auto& [box, profile, ours, reference] = drawing;
    SCOPED_TRACE(std::to_string(box.width) + " by " + std::to_string(box.height) + ", " + profile);
    ASSERT_EQ(ours.width(), reference.width());
    ASSERT_EQ(ours.height(), reference.height());
    const double similarity = structuralSimilarity(ours, reference);
    const double difference = colorDifference(ours, reference, profile);
    std::cout << box.width << " by " << box.height << ", " << profile << ": similarity " << similarity
              << ", difference " << difference << ", values from " << ours.min() << " to " << ours.max()
              << " against " << reference.min() << " to " << reference.max() << '\n';
    EXPECT_GE(similarity, kLeastSimilarity);
    EXPECT_LT(difference, kLargestColorDifference);
    // Nothing rings beyond it.
    EXPECT_GE(ours.min(), reference.min() - kEncodersOvershoot);
    EXPECT_LE(ours.max(), reference.max() + kEncodersOvershoot);
}

class Resampling : public testing::Test {
protected:
    static void SetUpTestSuite() { platform::startImageLibrary(); }

    void expectAsGoodAsTheReference(const VImage& picture) {
        const QString file = folder_.filePath(QStringLiteral("picture.png"));
        asRGB(picture).pngsave(QFile::encodeName(file).constData(),
                               VImage::option()->set("compression", 1)->set("strip", true));
        for (const Drawing& drawing : Drawings(file).make({kBoxes.begin(), kBoxes.end()}))
            expectAsGood(drawing);
    }

private:
    const QTemporaryDir folder_;
};

} // namespace

TEST_F(Resampling, DrawsAZonePlateAsWellAsALanczosFilter) {
    expectAsGoodAsTheReference(zonePlate());
}

TEST_F(Resampling, DrawsAStepWedgeAsWellAsALanczosFilter) {
    expectAsGoodAsTheReference(stepWedge());
}

TEST_F(Resampling, DrawsFineTextAsWellAsALanczosFilter) {
    expectAsGoodAsTheReference(fineText());
}

TEST_F(Resampling, DrawsAPhotographAsWellAsALanczosFilter) {
    expectAsGoodAsTheReference(photograph());
}

TEST_F(Resampling, DrawsAJPEGThatIsDecodedSmallAsWellAsALanczosFilter) {
    for (const Drawing& drawing : Drawings(QString::fromLatin1(kPhotograph)).make({kBoxes.front()}))
        expectAsGood(drawing);
}
