#pragma once

#include <QtCore/QByteArray>

#include <optional>

namespace platform {

/// `jpeg`, a baseline JPEG (ITU T.81) of one scan, with codes made for its own symbols in place of the codes
/// that it has: the same picture, usually in less bytes. An encoder that makes such codes itself holds the
/// whole picture for that; here it takes the new file's bytes alone. Without a value for any other data,
/// which may be anything.
std::optional<QByteArray> withOwnHuffmanCodes(const QByteArray& jpeg);

} // namespace platform
