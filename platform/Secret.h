#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>
#include <QtCore/QString>
#include <QtCore/QStringView>

namespace platform {

/// Overwrites the characters with zeros, in every copy that shares them, and empties the text. For the
/// owner of a password that nobody else reads any more.
void wipe(QString& text);
void wipe(QByteArray& bytes);

/// Wipes what nobody else holds any more, and leaves the others theirs.
void wipeUnlessShared(QString& text);
void wipeUnlessShared(QByteArray& bytes);

/// Appends, and wipes the memory that `text` leaves where it has to move.
void appendSecret(QString& text, QStringView more);
void appendSecret(QByteArray& bytes, QByteArrayView more);

/// Text of bytes in the encoding of the locale that the environment names, as C strings are read here: up to
/// the first NUL. Bytes that this encoding doesn't know make the whole text be read as ISO 8859-1, which has
/// a character for every byte, so that different bytes never become the same text.
QString textFromDefaultCString(const QByteArray& bytes);

} // namespace platform
