#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

namespace host::cli {

/// Why `path` can't be read as a file; without a value where it can.
std::optional<QString> reasonAgainstReading(const QByteArray& path);

/// The name of the file at `path`, without its folders.
QString fileName(const QByteArray& path);

/// The path from the root folder on, the same however the file's folder was written.
QByteArray absolutePath(const QByteArray& path);

/// The name of the folder that holds the file at `path`; none for a file in the root folder.
std::optional<QString> folderName(const QByteArray& path);

} // namespace host::cli
