#pragma once

#include <QtCore/QString>

namespace host::cli {

/// Whether a character would do something to a terminal instead of being shown: control characters, line and
/// paragraph separators, and marks that turn the direction of writing.
bool mustBeEscaped(char32_t c);

/// The text with every such character escaped: "\n" for a line end, "\x1b" or "\u{202e}" for others.
QString printable(const QString& text);

/// How many columns the printable text takes on a terminal.
int columns(const QString& text);

/// The start of the printable text that fits into `width` columns.
QString cutToWidth(const QString& text, int width);

} // namespace host::cli
