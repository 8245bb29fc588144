#include "host/desktop/PictureReader.h"

#include "host/core/FileContents.h"
#include "platform/ColorSpace.h"
#include "platform/Image.h"

#include <mutex>
#include <new>

namespace host::desktop {

namespace {

/// Files from this size on are read one at a time, so that memory stays bounded.
constexpr qsizetype kLargeFile = qsizetype{32} * 1024 * 1024;
/// What holds a JPEG's Exif data, which comes first in the file.
constexpr qsizetype kHeaderSize = qsizetype{256} * 1024;

std::mutex largeFileMutex;

/// Without a file, or without memory for it: empty.
QByteArray contents(const QByteArray& path, qsizetype atMost) {
    QString ignored;
    return fileContents(path, ignored, atMost).value_or(QByteArray());
}

QImage decoded(const QByteArray& data, int side) {
    const auto image = platform::Image::open(data);
    return image ? image->uprightWithin(side, *platform::ColorSpace::sRGB()) : QImage();
}

} // namespace

QImage readPicture(const QByteArray& path, int side) {
    try {
        const QByteArray beginning = contents(path, kLargeFile);
        if (beginning.size() < kLargeFile)
            return decoded(beginning, side);
        const std::lock_guard lock(largeFileMutex);
        return decoded(contents(path, std::numeric_limits<qsizetype>::max()), side);
    } catch (const std::bad_alloc&) {
        return {};
    }
}

QDateTime readCaptureTime(const QByteArray& path) {
    try {
        const QByteArray header = contents(path, kHeaderSize);
        if (const auto image = platform::Image::open(header))
            return image->captureTime();
        // Other formats keep their descriptions anywhere.
        const auto image =
            header.size() < kHeaderSize ? nullptr : platform::Image::open(contents(path, kLargeFile));
        return image ? image->captureTime() : QDateTime();
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace host::desktop
