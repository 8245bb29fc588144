#pragma once

#include <QtCore/QByteArray>

#include <memory>

namespace platform {

/// A colour space by its ICC profile; immutable, shared by reference.
class ColorSpace {
public:
    static std::shared_ptr<const ColorSpace> sRGB();
    static std::shared_ptr<const ColorSpace> adobeRGB1998();
    /// The colour space of an RGB ICC profile; empty where the data is no such profile.
    static std::shared_ptr<const ColorSpace> fromICCProfile(const QByteArray& profile);

    const QByteArray& iccProfile() const { return profile_; }
    /// Components of a pixel, which is what the profile's colour-space model comes to: 3 for RGB.
    int componentCount() const { return 3; }

private:
    explicit ColorSpace(QByteArray profile);
    QByteArray profile_;
};

} // namespace platform
