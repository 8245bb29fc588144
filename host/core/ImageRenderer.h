#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>
#include <optional>

namespace host {

/// An encoded image. `data` may only refer to the memory that `owner` keeps: hold both.
struct RenderedImage {
    QByteArray data;
    std::shared_ptr<void> owner;
};

/// Renders an image file for a plug-in: upright, in its own colour space and bit depth.
///
/// A file that stands upright as it is stored is handed over byte by byte. Any other is turned without a
/// lossy step: its pixels, with their ICC profile, become an uncompressed TIFF in memory. A file that can't
/// be decoded is handed over as it is too: leaving it out, or telling the user, is the plug-in's business.
///
/// Without a value, and with `error`, where the file can't be read or its pixels don't fit into memory.
/// `path` holds a file name's bytes as the system keeps them. Any thread.
std::optional<RenderedImage> renderImage(const QByteArray& path, QString& error);

} // namespace host
