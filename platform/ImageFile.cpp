#include "platform/ImageFile.h"

#include <vips/vips8>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>

namespace platform {

namespace {

QString lastSystemError() {
    return QString::fromLocal8Bit(strerrordesc_np(errno));
}

/// Fewer bytes than asked for only where the file ends; -1 where it can't be read.
std::int64_t readAt(int descriptor, std::uint64_t position, void* to, std::size_t count) {
    std::size_t length = 0;
    while (length < count) {
        const ssize_t read = pread(descriptor, static_cast<char*>(to) + length, count - length,
                                   static_cast<off_t>(position + length));
        if (read < 0 && errno == EINTR)
            continue;
        if (read < 0)
            return -1;
        if (read == 0)
            break;
        length += static_cast<std::size_t>(read);
    }
    return static_cast<std::int64_t>(length);
}

} // namespace

std::shared_ptr<const ImageFile> ImageFile::open(const QByteArray& path, QString* error) {
    // Never waits for a writer, should a pipe be there instead of a file.
    const int descriptor = ::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    struct stat status {};
    const bool isFound = descriptor >= 0 && fstat(descriptor, &status) == 0;
    if (isFound && S_ISREG(status.st_mode))
        return std::shared_ptr<const ImageFile>(
            new ImageFile(descriptor, static_cast<std::uint64_t>(status.st_size)));
    if (error)
        *error = isFound ? QStringLiteral("it is no longer a file") : lastSystemError();
    if (descriptor >= 0)
        close(descriptor);
    return nullptr;
}

ImageFile::ImageFile(int descriptor, std::uint64_t size)
    : descriptor_(descriptor)
    , size_(size) {}

ImageFile::~ImageFile() {
    close(descriptor_);
}

std::optional<QByteArray> ImageFile::contents(QString& error) const {
    QByteArray bytes(static_cast<qsizetype>(size_), Qt::Uninitialized);
    const std::int64_t length = readAt(descriptor_, 0, bytes.data(), size_);
    if (length < 0) {
        error = lastSystemError();
        return std::nullopt;
    }
    bytes.truncate(static_cast<qsizetype>(length));
    return bytes;
}

QByteArray ImageFile::bytes(std::uint64_t position, std::uint64_t count) const {
    if (position >= size_)
        return {};
    QByteArray bytes(static_cast<qsizetype>(std::min(count, size_ - position)), Qt::Uninitialized);
    const std::int64_t length =
        readAt(descriptor_, position, bytes.data(), static_cast<std::size_t>(bytes.size()));
    bytes.truncate(static_cast<qsizetype>(std::max<std::int64_t>(length, 0)));
    return bytes;
}

vips::VSource ImageFile::source() const {
    // libvips does not say which of its threads calls, nor that they take turns.
    struct Reading {
        std::mutex mutex{};
        std::shared_ptr<const ImageFile> file;
        std::int64_t position = 0;
    };
    using Read = gint64 (*)(VipsSourceCustom*, void*, gint64, void*);
    using Seek = gint64 (*)(VipsSourceCustom*, gint64, int, void*);
    const Read read = [](VipsSourceCustom*, void* to, gint64 count, void* data) -> gint64 {
        auto* const reading = static_cast<Reading*>(data);
        const std::lock_guard lock(reading->mutex);
        const std::int64_t length =
            readAt(reading->file->descriptor_, static_cast<std::uint64_t>(reading->position), to,
                   static_cast<std::size_t>(count));
        reading->position += std::max<std::int64_t>(length, 0);
        return length;
    };
    const Seek seek = [](VipsSourceCustom*, gint64 offset, int whence, void* data) -> gint64 {
        auto* const reading = static_cast<Reading*>(data);
        const std::lock_guard lock(reading->mutex);
        if (whence == SEEK_CUR)
            offset += reading->position;
        else if (whence == SEEK_END)
            offset += static_cast<gint64>(reading->file->size());
        return offset < 0 ? -1 : reading->position = offset;
    };
    const GClosureNotify release = [](void* data, GClosure*) { delete static_cast<Reading*>(data); };

    VipsSourceCustom* const source = vips_source_custom_new();
    auto* const reading = new Reading{.file = shared_from_this()};
    const std::lock_guard lock(reading->mutex);
    g_signal_connect_data(source, "seek", G_CALLBACK(seek), reading, nullptr, GConnectFlags{});
    g_signal_connect_data(source, "read", G_CALLBACK(read), reading, release, GConnectFlags{});
    return vips::VSource(VIPS_SOURCE(source));
}

} // namespace platform
