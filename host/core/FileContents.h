#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

namespace host {

/// The bytes of the file at `path`, up to the size that it has when it is opened.
///
/// Without a value, and with `error`, where it can't be read or is no regular file. `path` holds a file
/// name's bytes as the system keeps them. Throws std::bad_alloc where it does not fit into memory. Any
/// thread.
std::optional<QByteArray> fileContents(const QByteArray& path, QString& error);

} // namespace host
