#pragma once

#include <QtCore/QByteArray>

namespace host::cli {

/// Writes all bytes at once, unbuffered; gives up where nobody reads any more.
void writeAll(int fileDescriptor, const QByteArray& bytes);

/// Prints a message of the command itself on standard error, control characters escaped.
void complain(const QString& message);

} // namespace host::cli
