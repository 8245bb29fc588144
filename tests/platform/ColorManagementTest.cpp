// Which colours come out: against the standards' own formulas, and against another program's conversion.

#include "platform/Image.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>

#include <gtest/gtest.h>

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>

using platform::ColorSpace;
using platform::Image;
using test_support::Color;
using test_support::decoded;
using test_support::embeddedProfile;
using test_support::file;
using test_support::gradient;
using test_support::noise;
using test_support::patchColor;
using test_support::patches;
using test_support::profileResource;
using test_support::withProfile;
using vips::VImage;

namespace {

constexpr double kBest = 1.0;
constexpr int kColumns = 8;
constexpr int kSide = 48;
constexpr int kScaledSide = 20;

using Matrix = std::array<std::array<double, 3>, 3>;

/// A colour space by its published figures; XYZ is relative to D50.
struct Space {
    const char* resource;
    Matrix toXYZ;
    Matrix fromXYZ;
    double (*toLinear)(double);
    double (*fromLinear)(double);
};

const Space kSRGB{"sRGB.icc",
                  {{{0.4360747, 0.3850649, 0.1430804},
                    {0.2225045, 0.7168786, 0.0606169},
                    {0.0139322, 0.0971045, 0.7141733}}},
                  {{{3.1338561, -1.6168667, -0.4906146},
                    {-0.9787684, 1.9161415, 0.0334540},
                    {0.0719453, -0.2289914, 1.4052427}}},
                  [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); },
                  [](double v) { return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055; }};
const Space kAdobeRGB{"AdobeRGB1998.icc",
                      {{{0.6097559, 0.2052401, 0.1492240},
                        {0.3111242, 0.6256560, 0.0632197},
                        {0.0194811, 0.0608902, 0.7448387}}},
                      {{{1.9624274, -0.6105343, -0.3413404},
                        {-0.9787684, 1.9161415, 0.0334540},
                        {0.0286869, -0.1406752, 1.3487655}}},
                      [](double v) { return std::pow(v, 563.0 / 256); },
                      [](double v) { return std::pow(v, 256.0 / 563); }};
const Space kProPhoto{
    "ProPhotoRGB.icc",
    {{{0.7976749, 0.1351917, 0.0313534}, {0.2880402, 0.7118741, 0.0000857}, {0, 0, 0.8252100}}},
    {{{1.3459433, -0.2556075, -0.0511118}, {-0.5445989, 1.5081673, 0.0205351}, {0, 0, 1.2118128}}},
    [](double v) { return v < 16.0 / 512 ? v / 16 : std::pow(v, 1.8); },
    [](double v) { return v < 1.0 / 512 ? v * 16 : std::pow(v, 1 / 1.8); }};

using XYZ = std::array<double, 3>;

XYZ times(const Matrix& m, const XYZ& v) {
    XYZ result{};
    for (std::size_t i = 0; i < 3; ++i)
        result[i] = m[i][0] * v[0] + m[i][1] * v[1] + m[i][2] * v[2];
    return result;
}

XYZ xyzOf(const Space& space, const Color& color) {
    return times(space.toXYZ, {space.toLinear(color[0] / 255), space.toLinear(color[1] / 255),
                               space.toLinear(color[2] / 255)});
}

/// The exact colour, not rounded; what the space can't hold is clipped component by component.
Color colorOf(const Space& space, const XYZ& xyz) {
    Color color;
    for (const double linear : times(space.fromXYZ, xyz))
        color.push_back(255 * space.fromLinear(std::clamp(linear, 0.0, 1.0)));
    return color;
}

Color lab(const XYZ& xyz) {
    const auto f = [](double t) { return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116; };
    const double x = f(xyz[0] / 0.9642);
    const double y = f(xyz[1]);
    const double z = f(xyz[2] / 0.8249);
    return {116 * y - 16, 500 * (x - y), 200 * (y - z)};
}

VImage labImage(const std::vector<Color>& colors) {
    std::vector<VImage> points;
    for (const Color& color : colors)
        points.push_back(VImage::black(1, 1).cast(VIPS_FORMAT_FLOAT).new_from_image(color));
    return VImage::arrayjoin(points)
        .cast(VIPS_FORMAT_FLOAT)
        .copy(VImage::option()->set("interpretation", VIPS_INTERPRETATION_LAB));
}

/// Colours all over the cube, the corners and greys among them.
std::vector<Color> cube() {
    std::vector<Color> colors;
    for (const double red : {0, 85, 170, 255})
        for (const double green : {0, 85, 170, 255})
            for (const double blue : {0, 85, 170, 255})
                colors.push_back({red, green, blue});
    return colors;
}

QByteArray scaledPatches(const QByteArray& data, const ColorSpace& target, int count) {
    const auto image = Image::open(data);
    return image->scaledJPEG(kColumns * kScaledSide, count / kColumns * kScaledSide, target, kBest)
        .value_or(QByteArray());
}

struct Conversion {
    const char* name;
    const Space& from;
    const Space& to;
};
void PrintTo(const Conversion& conversion, std::ostream* out) {
    *out << conversion.name;
}

class EveryConversion : public testing::TestWithParam<Conversion> {};

INSTANTIATE_TEST_SUITE_P(ColorManagement, EveryConversion,
                         testing::Values(Conversion{"AdobeRGBToSRGB", kAdobeRGB, kSRGB},
                                         Conversion{"ProPhotoToSRGB", kProPhoto, kSRGB},
                                         Conversion{"SRGBToAdobeRGB", kSRGB, kAdobeRGB},
                                         Conversion{"SRGBToProPhoto", kSRGB, kProPhoto},
                                         Conversion{"SRGBToSRGB", kSRGB, kSRGB},
                                         Conversion{"AdobeRGBToProPhoto", kAdobeRGB, kProPhoto}),
                         [](const auto& instance) { return instance.param.name; });

/// The differences (CIEDE2000) of what came out to what the formulas give.
VImage differences(const QByteArray& jpeg, const std::vector<Color>& colors, const Space& from,
                   const Space& to) {
    const VImage result = decoded(jpeg);
    std::vector<Color> found;
    std::vector<Color> expected;
    for (int i = 0; i < int(colors.size()); ++i) {
        found.push_back(lab(xyzOf(to, patchColor(result, i, kColumns, kScaledSide))));
        expected.push_back(lab(xyzOf(to, colorOf(to, xyzOf(from, colors[std::size_t(i)])))));
    }
    return labImage(found).dE00(labImage(expected));
}

QByteArray savedProfile(cmsHPROFILE profile) {
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    QByteArray data(qsizetype(size), '\0');
    cmsSaveProfileToMem(profile, data.data(), &size);
    cmsCloseProfile(profile);
    return data;
}

QByteArray greyProfile() {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.8);
    const QByteArray data = savedProfile(cmsCreateGrayProfile(cmsD50_xyY(), curve));
    cmsFreeToneCurve(curve);
    return data;
}

QByteArray cmykProfile() {
    platform::startImageLibrary();
    VipsBlob* blob = VImage::profile_load("cmyk");
    std::size_t size = 0;
    const auto* bytes = static_cast<const char*>(vips_blob_get(blob, &size));
    QByteArray data(bytes, qsizetype(size));
    vips_area_unref(VIPS_AREA(blob));
    return data;
}

const std::vector<Color> kInks{{0, 0, 0, 0},   {0, 0, 0, 255},   {255, 0, 0, 0}, {0, 255, 0, 0},
                               {0, 0, 255, 0}, {128, 64, 32, 0}, {0, 0, 0, 128}, {60, 60, 60, 60}};

} // namespace

TEST_P(EveryConversion, FollowsTheStandardsFormulas) {
    const auto& [name, from, to] = GetParam();
    const auto colors = cube();
    const QByteArray data =
        file(withProfile(patches(colors, kColumns, kSide), profileResource(from.resource)), ".tif");
    const auto target = ColorSpace::fromICCProfile(profileResource(to.resource));
    const VImage difference = differences(scaledPatches(data, *target, int(colors.size())), colors, from, to);
    EXPECT_LT(difference.avg(), 1);
    EXPECT_LT(difference.max(), 5);
}

TEST(ColorManagement, AJPEGInAdobeRGBIsConvertedAsAnotherProgramConvertsIt) {
    const auto colors = cube();
    const QTemporaryDir folder;
    const QString original = folder.filePath(QStringLiteral("original.tif"));
    const QString converted = folder.filePath(QStringLiteral("converted.tif"));
    const VImage picture = withProfile(patches(colors, kColumns, kSide), profileResource("AdobeRGB1998.icc"));
    picture.write_to_file(original.toLocal8Bit().constData());
    QProcess tificc;
    tificc.start(QStringLiteral("tificc"),
                 {QStringLiteral("-t1"), QStringLiteral("-b"),
                  QStringLiteral("-i" QUILLMARK_SOURCE_DIR "/resources/AdobeRGB1998.icc"),
                  QStringLiteral("-o" QUILLMARK_SOURCE_DIR "/resources/sRGB.icc"), original, converted});
    ASSERT_TRUE(tificc.waitForFinished());
    ASSERT_EQ(tificc.exitCode(), 0) << tificc.readAllStandardError().toStdString();

    const VImage expected = VImage::new_from_file(converted.toLocal8Bit().constData());
    const VImage result =
        decoded(scaledPatches(file(picture, ".jpg[Q=100]"), *ColorSpace::sRGB(), int(colors.size())));
    std::vector<Color> ours;
    std::vector<Color> theirs;
    for (int i = 0; i < int(colors.size()); ++i) {
        ours.push_back(lab(xyzOf(kSRGB, patchColor(result, i, kColumns, kScaledSide))));
        theirs.push_back(lab(xyzOf(kSRGB, patchColor(expected, i, kColumns, kSide))));
    }
    const VImage difference = labImage(ours).dE00(labImage(theirs));
    EXPECT_LT(difference.avg(), 1);
    EXPECT_LT(difference.max(), 5);
}

TEST(ColorManagement, AScaledPictureCarriesTheChosenProfile) {
    const QByteArray data =
        file(withProfile(gradient(200, 100), profileResource("AdobeRGB1998.icc")), ".jpg");
    const auto image = Image::open(data);
    for (const char* name : {"sRGB.icc", "AdobeRGB1998.icc", "ProPhotoRGB.icc"}) {
        const auto space = ColorSpace::fromICCProfile(profileResource(name));
        EXPECT_EQ(embeddedProfile(*image->scaledJPEG(100, 50, *space, kBest)), profileResource(name)) << name;
        EXPECT_EQ(embeddedProfile(*image->scaledJPEG(400, 200, *space, kBest)), profileResource(name))
            << name;
    }
}

TEST(ColorManagement, AnUnscaledPictureKeepsItsOwnProfileAndNumbers) {
    const auto colors = cube();
    for (const char* writer : {".jpg[Q=100]", ".tif", ".png", ".webp[lossless]", ".heic[lossless]"}) {
        SCOPED_TRACE(writer);
        const QByteArray data =
            file(withProfile(patches(colors, kColumns, kSide), profileResource("ProPhotoRGB.icc")), writer);
        const QByteArray jpeg = *Image::open(data)->asJPEG(kBest);
        EXPECT_EQ(embeddedProfile(jpeg), profileResource("ProPhotoRGB.icc"));
        const VImage result = decoded(jpeg);
        for (int i = 0; i < int(colors.size()); ++i) {
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(patchColor(result, i, kColumns, kSide)[c], colors[std::size_t(i)][c], 4);
        }
    }
}

TEST(ColorManagement, AnUnscaledPictureWithoutAProfileStaysWithout) {
    const QByteArray jpeg = *Image::open(file(gradient(200, 100), ".png"))->asJPEG(kBest);
    EXPECT_TRUE(embeddedProfile(jpeg).isEmpty());
    EXPECT_FALSE(jpeg.contains("ICC_PROFILE"));
}

TEST(ColorManagement, AScaledPictureWithoutAProfileIsTakenForSRGB) {
    const auto colors = cube();
    const QByteArray data = file(patches(colors, kColumns, kSide), ".tif");
    const VImage difference = differences(
        scaledPatches(data, *ColorSpace::adobeRGB1998(), int(colors.size())), colors, kSRGB, kAdobeRGB);
    EXPECT_LT(difference.avg(), 1);
    EXPECT_LT(difference.max(), 5);
}

TEST(ColorManagement, APictureThatIsInTheColourSpaceKeepsItsNumbers) {
    const VImage picture = noise(200, 100);
    const auto differences = [&](const QByteArray& data, const ColorSpace& colorSpace) {
        const auto image = Image::open(data);
        const VImage same = decoded(*image->asJPEG(1.0));
        return (decoded(*image->scaledJPEG(200, 100, colorSpace, 1.0)) - same).abs().max();
    };
    EXPECT_EQ(differences(file(picture, ".png"), *ColorSpace::sRGB()), 0);
    const auto proPhoto = ColorSpace::fromICCProfile(profileResource("ProPhotoRGB.icc"));
    EXPECT_EQ(differences(file(withProfile(picture, proPhoto->iccProfile()), ".png"), *proPhoto), 0);
    EXPECT_GT(differences(file(picture, ".png"), *proPhoto), 0);
}

TEST(ColorManagement, ALongProfileSurvivesWhole) {
    QByteArray profile = profileResource("AdobeRGB1998.icc") + QByteArray(200'000, '\x5A');
    for (int i = 0; i < 4; ++i) // The header states the size.
        profile[i] = static_cast<char>(profile.size() >> (24 - 8 * i));
    const QByteArray data = file(withProfile(gradient(200, 100), profile), ".tif");
    EXPECT_EQ(embeddedProfile(*Image::open(data)->asJPEG(kBest)), profile);
}

TEST(ColorManagement, ADamagedProfileCountsAsNone) {
    const QByteArray good = profileResource("AdobeRGB1998.icc");
    const VImage picture = gradient(200, 100);
    const QByteArray plain =
        *Image::open(file(picture, ".tif"))->scaledJPEG(100, 50, *ColorSpace::sRGB(), kBest);
    for (const QByteArray& damaged :
         {QByteArray(300, '\xAA'), good.left(200), QByteArray(good).replace("rXYZ", "xXYZ")}) {
        const auto image = Image::open(file(withProfile(picture, damaged), ".tif"));
        EXPECT_EQ(*image->scaledJPEG(100, 50, *ColorSpace::sRGB(), kBest), plain);
        EXPECT_TRUE(embeddedProfile(*image->asJPEG(kBest)).isEmpty());
    }
}

// --- Grey ---

TEST(ColorManagement, AnUnscaledGreyPictureStaysGrey) {
    for (const VipsInterpretation model : {VIPS_INTERPRETATION_B_W, VIPS_INTERPRETATION_GREY16}) {
        const double unit = model == VIPS_INTERPRETATION_B_W ? 1 : 257;
        const VImage grey = patches({{0}, {100 * unit}, {255 * unit}}, 3, kSide, model);
        for (const QByteArray& profile : {QByteArray(), greyProfile()}) {
            const QByteArray jpeg =
                *Image::open(file(profile.isEmpty() ? grey : withProfile(grey, profile), ".tif"))
                     ->asJPEG(kBest);
            const VImage result = decoded(jpeg);
            EXPECT_EQ(result.bands(), 1);
            EXPECT_NEAR(patchColor(result, 1, 3, kSide)[0], 100, 1);
            EXPECT_EQ(embeddedProfile(jpeg), profile);
        }
    }
}

TEST(ColorManagement, AScaledGreyPictureBecomesRGB) {
    for (const VipsInterpretation model : {VIPS_INTERPRETATION_B_W, VIPS_INTERPRETATION_GREY16}) {
        const double unit = model == VIPS_INTERPRETATION_B_W ? 1 : 257;
        const QByteArray data = file(patches({{0}, {100 * unit}, {255 * unit}}, 3, kSide, model), ".tif");
        const VImage result = decoded(*Image::open(data)->scaledJPEG(60, 20, *ColorSpace::sRGB(), kBest));
        ASSERT_EQ(result.bands(), 3);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_NEAR(patchColor(result, 1, 3, 20)[c], 100, 1.5);
    }
}

TEST(ColorManagement, AScaledGreyPictureIsReadByItsProfile) {
    const QByteArray data = file(
        withProfile(patches({{0}, {100}, {255}}, 3, kSide, VIPS_INTERPRETATION_B_W), greyProfile()), ".tif");
    const VImage result = decoded(*Image::open(data)->scaledJPEG(60, 20, *ColorSpace::sRGB(), kBest));
    const double expected = 255 * kSRGB.fromLinear(std::pow(100 / 255.0, 1.8));
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_NEAR(patchColor(result, 1, 3, 20)[c], expected, 2);
}

TEST(ColorManagement, AnRGBProfileInAGreyPictureIsPassedOver) {
    const VImage grey = patches({{0}, {100}, {255}}, 3, kSide, VIPS_INTERPRETATION_B_W);
    const QByteArray profile = profileResource("ProPhotoRGB.icc");
    const QByteArray data = file(withProfile(grey, profile), ".tif");
    ASSERT_TRUE(data.contains(profile));
    const auto image = Image::open(data);
    ASSERT_TRUE(image);
    EXPECT_TRUE(embeddedProfile(*image->asJPEG(kBest)).isEmpty());
    EXPECT_NEAR(patchColor(decoded(*image->scaledJPEG(60, 20, *ColorSpace::sRGB(), kBest)), 1, 3, 20)[0], 100,
                1.5);
}

// --- CMYK ---

TEST(ColorManagement, AnUnscaledCMYKPictureStaysCMYK) {
    const VImage inks = patches(kInks, kColumns, kSide, VIPS_INTERPRETATION_CMYK);
    for (const char* writer : {".tif", ".jpg[Q=100]"}) {
        for (const QByteArray& profile : {QByteArray(), cmykProfile()}) {
            SCOPED_TRACE(writer);
            const QByteArray jpeg =
                *Image::open(file(profile.isEmpty() ? inks : withProfile(inks, profile), writer))
                     ->asJPEG(kBest);
            EXPECT_EQ(embeddedProfile(jpeg), profile);
            const VImage result = decoded(jpeg);
            ASSERT_EQ(result.bands(), 4);
            for (int i = 0; i < int(kInks.size()); ++i) {
                for (std::size_t c = 0; c < 4; ++c)
                    EXPECT_NEAR(patchColor(result, i, kColumns, kSide)[c], kInks[std::size_t(i)][c], 2);
            }
        }
    }
}

TEST(ColorManagement, ACMYKJPEGIsNotInvertedForOtherReaders) {
    const VImage inks = patches(kInks, kColumns, kSide, VIPS_INTERPRETATION_CMYK);
    const QImage read = QImage::fromData(*Image::open(file(inks, ".tif"))->asJPEG(kBest));
    const auto colorAt = [&](int index) { return read.pixelColor(index * kSide + kSide / 2, kSide / 2); };
    EXPECT_EQ(colorAt(0).lightness(), 255);
    EXPECT_LT(colorAt(1).lightness(), 60);
    EXPECT_GT(colorAt(2).blue(), colorAt(2).red() + 100) << "cyan";
    EXPECT_GT(colorAt(3).red(), colorAt(3).green() + 100) << "magenta";
    EXPECT_GT(colorAt(4).red(), colorAt(4).blue() + 100) << "yellow";
}

TEST(ColorManagement, AScaledCMYKPictureIsConvertedByItsProfile) {
    const QByteArray profile = cmykProfile();
    cmsHPROFILE from = cmsOpenProfileFromMem(profile.constData(), cmsUInt32Number(profile.size()));
    cmsHPROFILE to = cmsCreate_sRGBProfile();
    cmsHTRANSFORM transform = cmsCreateTransform(
        from, TYPE_CMYK_8, to, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_BLACKPOINTCOMPENSATION);
    const VImage inks = withProfile(patches(kInks, kColumns, kSide, VIPS_INTERPRETATION_CMYK), profile);
    for (const char* writer : {".tif", ".jpg[Q=100]"}) {
        SCOPED_TRACE(writer);
        const QByteArray jpeg = scaledPatches(file(inks, writer), *ColorSpace::sRGB(), int(kInks.size()));
        EXPECT_EQ(embeddedProfile(jpeg), profileResource("sRGB.icc"));
        const VImage result = decoded(jpeg);
        for (int i = 0; i < int(kInks.size()); ++i) {
            std::array<quint8, 4> ink{};
            std::copy(kInks[std::size_t(i)].begin(), kInks[std::size_t(i)].end(), ink.begin());
            std::array<quint8, 3> expected{};
            cmsDoTransform(transform, ink.data(), expected.data(), 1);
            for (std::size_t c = 0; c < 3; ++c)
                EXPECT_NEAR(patchColor(result, i, kColumns, kScaledSide)[c], expected[c], 3) << "patch " << i;
        }
    }
    cmsDeleteTransform(transform);
    cmsCloseProfile(from);
    cmsCloseProfile(to);
}

TEST(ColorManagement, AScaledCMYKPictureWithoutAProfileLooksAsItsInksDo) {
    const VImage inks = patches(kInks, kColumns, kSide, VIPS_INTERPRETATION_CMYK);
    const VImage result = decoded(scaledPatches(file(inks, ".tif"), *ColorSpace::sRGB(), int(kInks.size())));
    const auto color = [&](int index) { return patchColor(result, index, kColumns, kScaledSide); };
    const Color paper = color(0);
    EXPECT_GT(*std::min_element(paper.begin(), paper.end()), 250);
    EXPECT_LT(color(1)[0], 60);
    EXPECT_GT(color(2)[2], color(2)[0] + 100) << "cyan";
    EXPECT_GT(color(3)[0], color(3)[1] + 100) << "magenta";
    EXPECT_GT(color(4)[0], color(4)[2] + 100) << "yellow";
}
