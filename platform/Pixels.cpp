#include "platform/Pixels.h"

#include "platform/MemoryFile.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace platform {

using vips::VImage;

namespace {

constexpr double kLargest8 = 255;
constexpr double kLargest16 = 65535;

/// Profiles that libvips keeps itself, by name.
constexpr char kLibrarysRGB[] = "srgb";
constexpr char kLibrarysCMYK[] = "cmyk";

bool isWide(const VImage& image) {
    return image.format() == VIPS_FORMAT_USHORT;
}
double largest(const VImage& image) {
    return isWide(image) ? kLargest16 : kLargest8;
}

int bandCount(ColorModel model) {
    switch (model) {
    case ColorModel::Grey:
        return 1;
    case ColorModel::RGB:
        return 3;
    case ColorModel::CMYK:
        return 4;
    }
    Q_UNREACHABLE();
}

ColorModel modelOf(const VImage& image) {
    if (image.interpretation() == VIPS_INTERPRETATION_CMYK && image.bands() >= bandCount(ColorModel::CMYK))
        return ColorModel::CMYK;
    return image.bands() >= bandCount(ColorModel::RGB) ? ColorModel::RGB : ColorModel::Grey;
}

VipsInterpretation interpretation(ColorModel model, bool wide) {
    switch (model) {
    case ColorModel::Grey:
        return wide ? VIPS_INTERPRETATION_GREY16 : VIPS_INTERPRETATION_B_W;
    case ColorModel::RGB:
        return wide ? VIPS_INTERPRETATION_RGB16 : VIPS_INTERPRETATION_sRGB;
    case ColorModel::CMYK:
        return VIPS_INTERPRETATION_CMYK;
    }
    Q_UNREACHABLE();
}

VImage labelled(const VImage& image, ColorModel model) {
    return image.copy(VImage::option()->set("interpretation", interpretation(model, isWide(image))));
}

/// Device-independent pixels (a Lab TIFF's) become sRGB: grey, RGB and CMYK are what a JPEG holds.
VImage inDeviceColors(const VImage& image) {
    switch (image.interpretation()) {
    case VIPS_INTERPRETATION_LAB:
    case VIPS_INTERPRETATION_LABQ:
    case VIPS_INTERPRETATION_LABS:
    case VIPS_INTERPRETATION_XYZ: {
        VImage converted = image.colourspace(VIPS_INTERPRETATION_RGB16).copy();
        converted.remove(VIPS_META_ICC_NAME);
        return converted;
    }
    default:
        return image;
    }
}

/// With whole numbers of 8 or 16 bits. Wider and signed ones don't tell which value is white: such a picture
/// is better refused than made all black.
VImage inWholeNumbers(const VImage& image) {
    switch (image.format()) {
    case VIPS_FORMAT_UCHAR:
    case VIPS_FORMAT_USHORT:
        return image;
    case VIPS_FORMAT_FLOAT:
    case VIPS_FORMAT_DOUBLE:
        return image.linear(kLargest16, 0.5).cast(VIPS_FORMAT_USHORT);
    default:
        throw vips::VError("components of a kind that photographs don't have");
    }
}

/// Without what follows the colour components.
VImage opaque(const VImage& image, ColorModel model, Pixels::Extra extra) {
    const int bands = bandCount(model);
    if (image.bands() <= bands)
        return image;
    if (extra == Pixels::Extra::NoAlpha)
        return image.extract_band(0, VImage::option()->set("n", bands));
    const double white = model == ColorModel::CMYK ? 0 : largest(image); // Paper is where no ink is.
    return image.extract_band(0, VImage::option()->set("n", bands + 1))
        .flatten(VImage::option()
                     ->set("background", std::vector<double>(static_cast<std::size_t>(bands), white))
                     ->set("max_alpha", largest(image)));
}

/// The file's own profile, unless it is damaged or for another model: grey pictures often carry one for RGB.
std::optional<QByteArray> fittingProfile(const VImage& image, ColorModel model) {
    if (image.get_typeof(VIPS_META_ICC_NAME) != VIPS_TYPE_BLOB)
        return std::nullopt;
    std::size_t size = 0;
    const auto* data = static_cast<const char*>(image.get_blob(VIPS_META_ICC_NAME, &size));
    QByteArray profile(data, static_cast<qsizetype>(size));
    if (colorModelOfICCProfile(profile) != model)
        return std::nullopt;
    return profile;
}

VImage reduced(const VImage& image, double horizontal, double vertical) {
    if (horizontal >= 1 && vertical >= 1)
        return image;
    return image.resize(std::min(horizontal, 1.0), VImage::option()->set("vscale", std::min(vertical, 1.0)));
}

/// Pixels are areas, not points: their centres, half a pixel from the edges, stay where they are.
VImage enlarged(const VImage& image, int width, int height) {
    if (image.width() == width && image.height() == height)
        return image;
    const double horizontal = double(width) / image.width();
    const double vertical = double(height) / image.height();
    return image.affine({horizontal, 0, 0, vertical},
                        VImage::option()
                            ->set("interpolate", vips::VInterpolate::new_from_name("bicubic"))
                            ->set("idx", 0.5)
                            ->set("idy", 0.5)
                            ->set("odx", -0.5)
                            ->set("ody", -0.5)
                            ->set("oarea", std::vector<int>{0, 0, width, height})
                            ->set("extend", VIPS_EXTEND_COPY));
}

VImage greyAsRGB(const VImage& grey) {
    return labelled(VImage::bandjoin({grey, grey, grey}), ColorModel::RGB);
}

} // namespace

Pixels::Pixels(VImage image, std::optional<QByteArray> profile)
    : image_(std::move(image))
    , profile_(std::move(profile)) {}

Pixels::Pixels(const VImage& decoded, Extra extra) {
    const VImage image = inWholeNumbers(inDeviceColors(decoded));
    const ColorModel model = modelOf(image);
    profile_ = fittingProfile(image, model);
    image_ = labelled(opaque(labelled(image, model), model, extra), model);
}

Pixels Pixels::scaledTo(int width, int height) const {
    const VImage smaller = reduced(image_, double(width) / image_.width(), double(height) / image_.height());
    return {enlarged(smaller, width, height), profile_};
}

Pixels Pixels::convertedTo(const ColorSpace& colorSpace) const {
    const VImage image = profile_ || modelOf(image_) != ColorModel::Grey ? image_ : greyAsRGB(image_);
    // Nothing to convert, and nothing to round.
    if (modelOf(image) == ColorModel::RGB &&
        colorSpace.iccProfile() == profile_.value_or(ColorSpace::sRGB()->iccProfile()))
        return {Pixels(image, profile_).withEightBits().image_, colorSpace.iccProfile()};
    const MemoryFile target(colorSpace.iccProfile());
    const VImage converted = image.icc_transform(
        target.path().c_str(),
        VImage::option()
            ->set("embedded", profile_.has_value())
            ->set("input_profile", modelOf(image) == ColorModel::CMYK ? kLibrarysCMYK : kLibrarysRGB)
            ->set("intent", VIPS_INTENT_RELATIVE)
            ->set("black_point_compensation", true)
            ->set("depth", 8));
    return {converted, colorSpace.iccProfile()};
}

Pixels Pixels::withEightBits() const {
    if (!isWide(image_))
        return *this;
    const VImage narrow = image_.linear(kLargest8 / kLargest16, 0.5, VImage::option()->set("uchar", true));
    return {labelled(narrow, modelOf(image_)), profile_};
}

} // namespace platform
