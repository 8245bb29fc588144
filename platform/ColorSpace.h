#pragma once

#include <QtCore/QByteArray>

#include <memory>
#include <optional>

namespace platform {

/// What the numbers of a pixel stand for.
enum class ColorModel { Grey, RGB, CMYK };

/// The colour model of an ICC profile; without a value where the data is no profile that pixels can be read
/// by, or is one for another model. Any thread; the data may be anything.
std::optional<ColorModel> colorModelOfICCProfile(const QByteArray& profile);

/// An RGB colour space by its ICC profile; immutable, shared by reference, for any thread.
class ColorSpace {
public:
    /// The two that the platform brings along (IEC 61966-2-1 and Adobe RGB (1998)).
    static std::shared_ptr<const ColorSpace> sRGB();
    static std::shared_ptr<const ColorSpace> adobeRGB1998();
    /// The colour space of an RGB ICC profile; empty where the data is no profile that pixels can be
    /// converted to.
    static std::shared_ptr<const ColorSpace> fromICCProfile(const QByteArray& profile);

    const QByteArray& iccProfile() const { return profile_; }
    /// Components of a pixel, which is what the profile's colour-space model comes to: 3 for RGB.
    int componentCount() const { return 3; }

private:
    explicit ColorSpace(QByteArray profile);
    QByteArray profile_;
};

} // namespace platform
