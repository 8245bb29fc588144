#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QCollator>
#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace host::desktop {

/// What a file is known by to be another than before.
struct FileVersion {
    quint64 file = 0;    ///< Its number in the file system: programs that save put a new one in its place.
    qint64 modified = 0; ///< In nanoseconds.
    qint64 size = 0;
    bool operator==(const FileVersion&) const = default;
};

/// One picture on the light table.
struct Photograph {
    /// What is known of the picture itself; nothing before it has been looked at.
    enum class State { Unknown, Readable, Unreadable };

    QByteArray path;     ///< Absolute, as the system keeps it.
    QString name;        ///< Of the file.
    QString project;     ///< The folder's name, unless the user has given another.
    QString type;        ///< The extension, in small letters.
    FileVersion version; ///< Of the file, when it was last looked at.
    QDateTime captured;  ///< Invalid until it has been read, or where the file does not tell.
    QCollatorSortKey nameKey;
    State state = State::Unknown;
};

} // namespace host::desktop
