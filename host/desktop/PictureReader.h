#pragma once

#include <QtCore/QByteArray>
#include <QtGui/QImage>

#include <functional>

namespace host::desktop {

/// The picture in the file at `path`: upright, in sRGB, at most `side` pixels wide and high. A null image
/// where the file is not there, or can't be decoded whole. Any thread.
///
/// Pictures that hold much memory while they are decoded wait for each other. Before one is decoded that
/// takes most of what there is, `makeRoom` is called, on this thread.
QImage readPicture(
    const QByteArray& path, int side, const std::function<void()>& makeRoom = [] {});

} // namespace host::desktop
