#pragma once

#include "platform/ColorSpace.h"
#include "platform/ImageFile.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtGui/QImage>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace platform {

/// Prepares libvips for this process: operation cache off, untrusted loaders blocked, its log silenced.
/// Every class of this file does it by itself, once.
void startImageLibrary();

/// The first image of an encoded block of data (JPEG, PNG, TIFF, WebP or HEIF), not yet decoded.
///
/// Opening reads the header alone; the pixels are decoded once, when they are encoded anew.
class Image {
public:
    /// Empty where the data is no image that can be read. Keeps `data`, copies nothing.
    static std::unique_ptr<Image> open(const QByteArray& data);
    /// The same of a file. Most formats are read whole; of a TIFF, which may be large, no more than is
    /// decoded.
    static std::unique_ptr<Image> openFile(const std::shared_ptr<const ImageFile>& file);
    /// Whether that reads the file whole.
    static bool isReadWhole(const ImageFile& file);
    /// What the file's image holds at once at most, opened and decoded, besides a few lines of pixels; more
    /// than there is where the beginning of the file doesn't tell.
    static std::uint64_t bytesHeld(const ImageFile& file);

    ~Image();
    Image(const Image&) = delete;
    Image& operator=(const Image&) = delete;

    /// Pixels as stored: the Exif orientation is not looked at.
    std::uint32_t width() const;
    std::uint32_t height() const;

    /// The image drawn into exactly `width` by `height` pixels, 8-bit RGB in `colorSpace` (whose
    /// profile is embedded), alpha flattened over white, as a JPEG without any metadata; without a
    /// value where the data can't be decoded whole.
    std::optional<QByteArray> scaledJPEG(std::int32_t width, std::int32_t height,
                                         const ColorSpace& colorSpace, double quality) const;
    /// The image in its own size and colour space (own profile embedded), 8 bits per component, else as
    /// `scaledJPEG`. `quality` is between 0 and 1, the best.
    std::optional<QByteArray> asJPEG(double quality) const;
    /// The image to be looked at: upright, 8-bit RGB in `colorSpace`, at most `side` pixels wide and high,
    /// never enlarged; a null image where the data can't be decoded whole.
    QImage uprightWithin(std::int32_t side, const ColorSpace& colorSpace) const;
    /// When the picture was taken, by the camera's clock (Exif); invalid where the file does not tell.
    QDateTime captureTime() const;

private:
    struct Source;
    explicit Image(std::unique_ptr<Source> source);
    static std::unique_ptr<Image> open(Source source, std::string_view loader);
    std::unique_ptr<Source> source_;
};

} // namespace platform
