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

/// Of the file at `path`; empty where there is none, or its time is none of a photograph's. Any thread.
std::optional<FileStamp> fileStamp(const QByteArray& path);

/// What an export has noted of a photograph, to know it again.
struct PhotographTrace {
    std::optional<FileStamp> stamp{}; ///< Of its file, when the export began; empty where it was not there.
    QDateTime captured{};             ///< By the camera's clock; invalid where that is not known.
    QDateTime exported{};             ///< When the export began.
    bool operator==(const PhotographTrace&) const = default;
};

/// Whether the file at `path` shows that photograph: as it was, or edited since. Else another one lies there
/// now: on another card that is found under the same path, or on one that was used again. Any thread.
bool isStillThere(const QByteArray& path, const PhotographTrace& trace);

/// When the picture was taken, by the camera's clock; invalid where the file does not tell. Any thread.
QDateTime readCaptureTime(const QByteArray& path);

} // namespace host
