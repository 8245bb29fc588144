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

struct TransformDeleter {
    void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<void, TransformDeleter>;

Profile openProfile(const QByteArray& data) {
    return Profile(cmsOpenProfileFromMem(data.constData(), static_cast<cmsUInt32Number>(data.size())));
}

/// A profile's header alone proves little: only one that converts is of use.
bool convertsIntoRGB(cmsHPROFILE profile) {
    const Profile source(cmsCreate_sRGBProfile());
    const Transform transform(cmsCreateTransform(source.get(), TYPE_RGB_8, profile, TYPE_RGB_8,
                                                 INTENT_RELATIVE_COLORIMETRIC,
                                                 cmsFLAGS_BLACKPOINTCOMPENSATION));
    return transform != nullptr;
}

std::shared_ptr<const ColorSpace> ofThePlatform(std::string_view bytes) {
    return ColorSpace::fromICCProfile(
        QByteArray::fromRawData(bytes.data(), static_cast<qsizetype>(bytes.size())));
}

} // namespace

ColorSpace::ColorSpace(QByteArray profile) : profile_(std::move(profile)) {}

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
    if (!profile || cmsGetColorSpace(profile.get()) != cmsSigRgbData || !convertsIntoRGB(profile.get()))
        return nullptr;
    return std::shared_ptr<const ColorSpace>(new ColorSpace(data));
}

} // namespace platform
