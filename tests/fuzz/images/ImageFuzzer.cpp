#include "platform/Image.h"
#include "tests/fuzz/FuzzData.h"

#include <QtCore/QDateTime>
#include <QtGui/QImage>

#include <algorithm>

using platform::ColorSpace;
using platform::Image;

namespace {

constexpr double kQuality = 1.0;
/// Scaled to this side an image goes through each way of scaling, sooner or later: most are smaller or
/// larger.
constexpr std::uint32_t kSide = 20;

/// What was made is an image of the size that was asked for.
void requireJPEG(const std::optional<QByteArray>& jpeg, std::uint32_t width, std::uint32_t height) {
    if (!jpeg)
        return;
    const auto image = Image::open(*jpeg);
    require(image != nullptr);
    require(image->width() == width && image->height() == height);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes = answerOf(data, size);
    const auto image = Image::open(bytes);
    if (!image)
        return 0;
    require(image->width() > 0 && image->height() > 0);
    requireJPEG(image->asJPEG(kQuality), image->width(), image->height());
    const std::uint32_t height = std::clamp(image->height() / 3, 1U, kSide);
    requireJPEG(image->scaledJPEG(kSide, static_cast<std::int32_t>(height), *ColorSpace::sRGB(), kQuality),
                kSide, height);
    const QImage preview = image->uprightWithin(static_cast<std::int32_t>(kSide), *ColorSpace::sRGB());
    require(std::max(preview.width(), preview.height()) <= static_cast<int>(kSide));
    image->captureTime();
    return 0;
}
