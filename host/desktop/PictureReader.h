#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtGui/QImage>

namespace host::desktop {

/// The picture in the file at `path`: upright, in sRGB, at most `side` pixels wide and high. A null image
/// where the file is not there, or can't be decoded whole. Any thread.
QImage readPicture(const QByteArray& path, int side);

/// When the picture was taken, by the camera's clock; invalid where the file does not tell. Any thread.
QDateTime readCaptureTime(const QByteArray& path);

} // namespace host::desktop
