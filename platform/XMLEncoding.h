#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <optional>

namespace platform {

/// The text of an XML document by its byte order mark or declaration (XML 1.0, appendix F): UTF-8, UTF-16,
/// ISO-8859-1 or windows-1252; UTF-8 where nothing is said. It ends before the first byte that its encoding
/// does not allow. Without a value for any other encoding.
std::optional<QString> decodedXMLDocument(const QByteArray& data);

} // namespace platform
