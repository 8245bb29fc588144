// The profiles: that they are what their standards say, and that anything may be given for one.

#include "platform/ColorSpace.h"
#include "tests/support/Pictures.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

#include <gtest/gtest.h>

#include <lcms2.h>

#include <cmath>
#include <functional>

using platform::ColorModel;
using platform::colorModelOfICCProfile;
using platform::ColorSpace;
using test_support::profileResource;

namespace {

constexpr const char* kResources[] = {"sRGB.icc", "AdobeRGB1998.icc", "ProPhotoRGB.icc"};

struct Profile {
    explicit Profile(cmsHPROFILE made)
        : handle(made) {}
    explicit Profile(const QByteArray& data)
        : handle(cmsOpenProfileFromMem(data.constData(), cmsUInt32Number(data.size()))) {}
    ~Profile() {
        if (handle)
            cmsCloseProfile(handle);
    }
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    QByteArray bytes() const {
        cmsUInt32Number size = 0;
        cmsSaveProfileToMem(handle, nullptr, &size);
        QByteArray data(qsizetype(size), '\0');
        cmsSaveProfileToMem(handle, data.data(), &size);
        return data;
    }

    cmsHPROFILE handle;
};

cmsCIEXYZ colorant(const Profile& profile, cmsTagSignature tag) {
    return *static_cast<cmsCIEXYZ*>(cmsReadTag(profile.handle, tag));
}

/// The published colorants, adapted to D50 by Bradford's matrix.
void expectColorants(const char* resource, const double (&rows)[3][3]) {
    const Profile profile(profileResource(resource));
    ASSERT_TRUE(profile.handle);
    const cmsTagSignature tags[] = {cmsSigRedColorantTag, cmsSigGreenColorantTag, cmsSigBlueColorantTag};
    for (int i = 0; i < 3; ++i) {
        const cmsCIEXYZ xyz = colorant(profile, tags[i]);
        EXPECT_NEAR(xyz.X, rows[0][i], 0.0002);
        EXPECT_NEAR(xyz.Y, rows[1][i], 0.0002);
        EXPECT_NEAR(xyz.Z, rows[2][i], 0.0002);
    }
}

void expectToneCurve(const char* resource, const std::function<double(double)>& toLinear) {
    const Profile profile(profileResource(resource));
    for (const cmsTagSignature tag : {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag}) {
        const auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(profile.handle, tag));
        for (int code = 0; code <= 255; ++code) {
            const double value = code / 255.0;
            EXPECT_NEAR(double(cmsEvalToneCurveFloat(curve, cmsFloat32Number(value))), toLinear(value),
                        0.00002)
                << code;
        }
    }
}

QByteArray gray() {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 2.2);
    const QByteArray bytes = Profile(cmsCreateGrayProfile(cmsD50_xyY(), curve)).bytes();
    cmsFreeToneCurve(curve);
    return bytes;
}

} // namespace

TEST(ColorSpace, TheCommittedProfilesAreWhatTheirMakerWrites) {
    const QTemporaryDir folder;
    QProcess maker;
    maker.start(QStringLiteral(QUILLMARK_SOURCE_DIR "/scripts/make-profiles"), {folder.path()});
    ASSERT_TRUE(maker.waitForFinished());
    ASSERT_EQ(maker.exitCode(), 0) << maker.readAllStandardError().toStdString();
    for (const char* name : kResources) {
        QFile made(folder.filePath(QString::fromLatin1(name)));
        ASSERT_TRUE(made.open(QIODevice::ReadOnly)) << name;
        EXPECT_EQ(made.readAll(), profileResource(name)) << name;
    }
}

TEST(ColorSpace, TheProfilesHoldThePublishedPrimaries) {
    expectColorants("sRGB.icc",
                    {{0.4361, 0.3851, 0.1431}, {0.2225, 0.7169, 0.0606}, {0.0139, 0.0971, 0.7141}});
    expectColorants("AdobeRGB1998.icc",
                    {{0.6097, 0.2053, 0.1492}, {0.3111, 0.6257, 0.0632}, {0.0195, 0.0609, 0.7446}});
    expectColorants("ProPhotoRGB.icc", {{0.7977, 0.1352, 0.0313}, {0.2880, 0.7119, 0.0001}, {0, 0, 0.8249}});
}

TEST(ColorSpace, WhiteIsExactlyTheConnectionSpacesWhite) {
    for (const char* name : kResources) {
        const Profile profile(profileResource(name));
        const cmsCIEXYZ red = colorant(profile, cmsSigRedColorantTag);
        const cmsCIEXYZ green = colorant(profile, cmsSigGreenColorantTag);
        const cmsCIEXYZ blue = colorant(profile, cmsSigBlueColorantTag);
        EXPECT_EQ(std::lround((red.X + green.X + blue.X) * 65536), 0xF6D6) << name;
        EXPECT_EQ(std::lround((red.Y + green.Y + blue.Y) * 65536), 0x10000) << name;
        EXPECT_EQ(std::lround((red.Z + green.Z + blue.Z) * 65536), 0xD32D) << name;
    }
}

TEST(ColorSpace, TheProfilesHoldThePublishedToneCurves) {
    expectToneCurve("sRGB.icc",
                    [](double v) { return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4); });
    expectToneCurve("AdobeRGB1998.icc", [](double v) { return std::pow(v, 563.0 / 256); });
    expectToneCurve("ProPhotoRGB.icc", [](double v) { return v < 16.0 / 512 ? v / 16 : std::pow(v, 1.8); });
}

TEST(ColorSpace, ThePlatformsSpacesAreTheResources) {
    EXPECT_EQ(ColorSpace::sRGB()->iccProfile(), profileResource("sRGB.icc"));
    EXPECT_EQ(ColorSpace::adobeRGB1998()->iccProfile(), profileResource("AdobeRGB1998.icc"));
    EXPECT_EQ(ColorSpace::sRGB(), ColorSpace::sRGB());
    EXPECT_EQ(ColorSpace::sRGB()->componentCount(), 3);
}

TEST(ColorSpace, AnRGBProfileMakesAColorSpaceThatKeepsItsBytes) {
    const QByteArray profile = profileResource("ProPhotoRGB.icc");
    const auto space = ColorSpace::fromICCProfile(profile);
    ASSERT_TRUE(space);
    EXPECT_EQ(space->iccProfile(), profile);
}

TEST(ColorSpace, ProfilesOfOtherModelsAndClassesMakeNone) {
    EXPECT_FALSE(ColorSpace::fromICCProfile(gray()));
    EXPECT_FALSE(ColorSpace::fromICCProfile(Profile(cmsCreateLab2Profile(nullptr)).bytes()));
    EXPECT_FALSE(
        ColorSpace::fromICCProfile(Profile(cmsCreateInkLimitingDeviceLink(cmsSigCmykData, 200)).bytes()));
}

TEST(ColorSpace, TheModelOfAProfileIsToldWherePixelsCanBeReadByIt) {
    EXPECT_EQ(colorModelOfICCProfile(profileResource("sRGB.icc")), ColorModel::RGB);
    EXPECT_EQ(colorModelOfICCProfile(gray()), ColorModel::Grey);
    EXPECT_EQ(colorModelOfICCProfile(Profile(cmsCreateLab4Profile(nullptr)).bytes()), std::nullopt);
    EXPECT_EQ(colorModelOfICCProfile(Profile(cmsCreateInkLimitingDeviceLink(cmsSigCmykData, 200)).bytes()),
              std::nullopt);
    EXPECT_EQ(colorModelOfICCProfile({}), std::nullopt);
}

TEST(ColorSpace, ACutOffProfileMakesNone) {
    const QByteArray profile = profileResource("ProPhotoRGB.icc");
    for (qsizetype size = 0; size < profile.size() - 3; size += 13) {
        EXPECT_FALSE(ColorSpace::fromICCProfile(profile.left(size))) << size;
        EXPECT_FALSE(colorModelOfICCProfile(profile.left(size))) << size;
    }
}

TEST(ColorSpace, ADamagedProfileIsSurvived) {
    const QByteArray profile = profileResource("sRGB.icc");
    for (qsizetype position = 0; position < 300; ++position) {
        for (const char value : {'\x00', '\xFF'}) {
            QByteArray damaged = profile;
            damaged[position] = value;
            const auto space = ColorSpace::fromICCProfile(damaged);
            EXPECT_TRUE(!space || space->iccProfile() == damaged);
        }
    }
}
