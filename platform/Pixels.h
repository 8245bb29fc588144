#pragma once

#include "platform/ColorSpace.h"

#include <vips/vips8>

#include <QtCore/QByteArray>

#include <optional>

namespace platform {

/// A decoded picture on its way to a JPEG: opaque grey, RGB or CMYK with 8 or 16 bits per component. Pixels
/// are computed when the picture is written, a few lines at a time. The functions throw vips::VError.
class Pixels {
public:
    /// What a file's first component behind the colour is, where it has one.
    enum class Extra { Alpha, NoAlpha };

    /// What a loader has made of a file: alpha is flattened over white, what else is no colour is dropped;
    /// floating-point components run from 0 to 1.
    Pixels(const vips::VImage& decoded, Extra extra);

    /// Drawn into exactly `width` by `height` pixels, smaller or larger.
    Pixels scaledTo(int width, int height) const;
    /// As 8-bit RGB in `colorSpace`, by relative colorimetry with black point compensation. What has no
    /// profile of its own is taken for sRGB, or for the CMYK that libvips brings along.
    Pixels convertedTo(const ColorSpace& colorSpace) const;
    /// With 8 bits per component, in the same colour space.
    Pixels withEightBits() const;

    const vips::VImage& image() const { return image_; }
    /// The profile to read the pixels by; without a value where the file has none that fits them.
    const std::optional<QByteArray>& profile() const { return profile_; }

private:
    Pixels(vips::VImage image, std::optional<QByteArray> profile);

    vips::VImage image_;
    std::optional<QByteArray> profile_;
};

} // namespace platform
