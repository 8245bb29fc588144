#include "platform/ColorSpace.h"

#include <lcms2.h>

#include <string_view>
#include <utility>

namespace platform {

namespace embedded {
// Made of resources/ when the library is built.
extern const std::string_view sRGB;
extern const std::string_view AdobeRGB1998;
} // namespace embedded

namespace {

struct ProfileCloser {
    void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;

Profile openProfile(const QByteArray& data) {
    return Profile(cmsOpenProfileFromMem(data.constData(), static_cast<cmsUInt32Number>(data.size())));
}

/// A header alone proves little: a profile is of use where a conversion can be built from it.
bool converts(cmsHPROFILE from, cmsUInt32Number fromFormat, cmsHPROFILE to, cmsUInt32Number toFormat) {
    const cmsHTRANSFORM transform =
        cmsCreateTransform(from, fromFormat, to, toFormat, INTENT_RELATIVE_COLORIMETRIC,
                           cmsFLAGS_BLACKPOINTCOMPENSATION | cmsFLAGS_NOOPTIMIZE);
    if (!transform)
        return false;
    cmsDeleteTransform(transform);
    return true;
}

/// Profiles of the other classes turn colours into colours; pixels aren't described by them.
bool describesPixels(cmsHPROFILE profile) {
    switch (cmsGetDeviceClass(profile)) {
    case cmsSigInputClass:
    case cmsSigDisplayClass:
    case cmsSigOutputClass:
    case cmsSigColorSpaceClass:
        return true;
    default:
        return false;
    }
}

struct PixelKind {
    ColorModel model;
    cmsUInt32Number format;
};

std::optional<PixelKind> pixelKind(cmsHPROFILE profile) {
    switch (cmsGetColorSpace(profile)) {
    case cmsSigGrayData:
        return PixelKind{ColorModel::Grey, TYPE_GRAY_8};
    case cmsSigRgbData:
        return PixelKind{ColorModel::RGB, TYPE_RGB_8};
    case cmsSigCmykData:
        return PixelKind{ColorModel::CMYK, TYPE_CMYK_8};
    default:
        return std::nullopt;
    }
}

std::shared_ptr<const ColorSpace> ofThePlatform(std::string_view bytes) {
    return ColorSpace::fromICCProfile(
        QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size())));
}

} // namespace

std::optional<ColorModel> colorModelOfICCProfile(const QByteArray& data) {
    const Profile profile = openProfile(data);
    if (!profile || !describesPixels(profile.get()))
        return std::nullopt;
    const auto kind = pixelKind(profile.get());
    const Profile target(cmsCreate_sRGBProfile());
    if (!kind || !converts(profile.get(), kind->format, target.get(), TYPE_RGB_8))
        return std::nullopt;
    return kind->model;
}

ColorSpace::ColorSpace(QByteArray profile)
    : profile_(std::move(profile)) {}

std::shared_ptr<const ColorSpace> ColorSpace::sRGB() {
    static const std::shared_ptr<const ColorSpace> space = ofThePlatform(embedded::sRGB);
    return space;
}

std::shared_ptr<const ColorSpace> ColorSpace::adobeRGB1998() {
    static const std::shared_ptr<const ColorSpace> space = ofThePlatform(embedded::AdobeRGB1998);
    return space;
}

std::shared_ptr<const ColorSpace> ColorSpace::fromICCProfile(const QByteArray& data) {
    const Profile profile = openProfile(data);
    if (!profile || cmsGetColorSpace(profile.get()) != cmsSigRgbData || !describesPixels(profile.get()))
        return nullptr;
    const Profile source(cmsCreate_sRGBProfile());
    if (!converts(source.get(), TYPE_RGB_8, profile.get(), TYPE_RGB_8))
        return nullptr;
    return std::shared_ptr<const ColorSpace>(new ColorSpace(data));
}

} // namespace platform
