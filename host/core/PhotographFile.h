#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>

#include <optional>

namespace host {

/// By which a file is known to be another one than before, where its path is the same: what file systems of
/// memory cards keep.
struct FileStamp {
    qint64 modified = 0; ///< Milliseconds since 1970, UTC.
    qint64 size = 0;     ///< Bytes.
    bool operator==(const FileStamp&) const = default;
};

/// Of the file at `path`; empty where there is none. Any thread.
std::optional<FileStamp> fileStamp(const QByteArray& path);

/// When the picture was taken, by the camera's clock; invalid where the file does not tell. Any thread.
QDateTime readCaptureTime(const QByteArray& path);

} // namespace host
