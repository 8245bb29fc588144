#include "host/core/PhotographFile.h"

#include "platform/Image.h"

#include <sys/stat.h>

#include <new>

namespace host {

namespace {

using platform::Image;
using platform::ImageFile;

constexpr qint64 kMillisecondsInASecond = 1000;
constexpr qint64 kNanosecondsInAMillisecond = 1'000'000;
/// In the year 9999. Damaged file systems tell of anything.
constexpr qint64 kLastSecond = 253'402'300'799;
/// Larger files are not read whole for a time.
constexpr std::uint64_t kLargeFile = std::uint64_t{32} << 20;
/// What holds a JPEG's Exif data, which comes first in the file.
constexpr std::uint64_t kHeaderSize = std::uint64_t{256} << 10;

} // namespace

std::optional<FileStamp> fileStamp(const QByteArray& path) {
    struct stat status {};
    if (stat(path.constData(), &status) != 0 || status.st_mtim.tv_sec < 0 ||
        status.st_mtim.tv_sec > kLastSecond)
        return std::nullopt;
    return FileStamp{status.st_mtim.tv_sec * kMillisecondsInASecond +
                         status.st_mtim.tv_nsec / kNanosecondsInAMillisecond,
                     status.st_size};
}

bool isStillThere(const QByteArray& path, const PhotographTrace& trace) {
    const auto stamp = fileStamp(path);
    if (!stamp || !trace.stamp || *stamp == *trace.stamp)
        return true;
    if (const QDateTime captured = readCaptureTime(path); captured.isValid() && trace.captured.isValid())
        return captured == trace.captured;
    return stamp->modified > trace.exported.toMSecsSinceEpoch();
}

QDateTime readCaptureTime(const QByteArray& path) {
    try {
        const auto file = ImageFile::open(path);
        if (!file)
            return {};
        if (const auto image = Image::open(file->bytes(0, kHeaderSize)))
            return image->captureTime();
        // Other formats keep their descriptions anywhere.
        const bool isTooLarge = Image::isReadWhole(*file) && file->size() > kLargeFile;
        const auto image = file->size() <= kHeaderSize || isTooLarge ? nullptr : Image::openFile(file);
        return image ? image->captureTime() : QDateTime();
    } catch (const std::bad_alloc&) {
        return {};
    }
}

} // namespace host
