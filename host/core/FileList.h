#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>
#include <vector>

namespace host {

/// The names in the file at `path`, each ended by a zero byte, as other programs list files of any name and
/// in any number. None, with `error`, where it can't be read, or a name is empty. Names and `path` hold the
/// bytes as the system keeps them. Any thread.
std::optional<std::vector<QByteArray>> fileList(const QByteArray& path, QString& error);

} // namespace host
