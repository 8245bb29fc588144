#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstdint>
#include <memory>
#include <optional>

namespace vips {
class VSource;
}

namespace platform {

/// A file that holds a picture, open for reading. Any thread.
///
/// Read, not mapped, which libvips' own sources may do: a mapped file that is cut off meanwhile would kill
/// the process.
class ImageFile : public std::enable_shared_from_this<ImageFile> {
public:
    /// Null, with `error`, where `path`, a file name's bytes as the system keeps them, is no regular file
    /// that can be read.
    static std::shared_ptr<const ImageFile> open(const QByteArray& path, QString* error = nullptr);

    ~ImageFile();
    ImageFile(const ImageFile&) = delete;
    ImageFile& operator=(const ImageFile&) = delete;

    /// Of the file when it was opened.
    std::uint64_t size() const { return size_; }
    /// The whole file. Without a value, and with `error`, where it can't be read. Throws std::bad_alloc where
    /// it does not fit into memory.
    std::optional<QByteArray> contents(QString& error) const;
    /// Up to `count` bytes from `position` on: fewer where the file ends, none where it can't be read. Throws
    /// std::bad_alloc where they do not fit into memory.
    QByteArray bytes(std::uint64_t position, std::uint64_t count) const;
    /// At its beginning; keeps the file open as long as it lives.
    vips::VSource source() const;

private:
    ImageFile(int descriptor, std::uint64_t size);

    const int descriptor_;
    const std::uint64_t size_;
};

} // namespace platform
