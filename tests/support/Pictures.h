#pragma once

#include <QtCore/QByteArray>

#include <vips/vips8>

#include <vector>

namespace test_support {

/// Components of one colour, in the unit of the picture's format.
using Color = std::vector<double>;

/// A resource of the source tree, such as "sRGB.icc".
QByteArray profileResource(const char* name);

/// Squares of one colour each, `side` pixels wide, in rows of `columns`; 8 bits per component, or 16 for the
/// interpretations with 16 in their names.
vips::VImage patches(const std::vector<Color>& colors, int columns, int side,
                     VipsInterpretation interpretation = VIPS_INTERPRETATION_sRGB);
/// Without an edge: what lossy formats keep exactly enough, and every pixel is another.
vips::VImage gradient(int width, int height);
/// Such as no compression makes small.
vips::VImage noise(int width, int height);

vips::VImage withProfile(const vips::VImage& image, const QByteArray& profile);

/// A whole file; `format` is the suffix with the writer's options, such as ".tif[tile]".
QByteArray file(const vips::VImage& image, const char* format);
vips::VImage decoded(const QByteArray& file);
/// The colour in the middle of patch number `index`.
Color patchColor(const vips::VImage& image, int index, int columns, int side);

/// A segment of a JPEG before its first scan.
struct JPEGSegment {
    unsigned char marker;
    QByteArray payload;
};
std::vector<JPEGSegment> segments(const QByteArray& jpeg);
/// The ICC profile that the segments carry; empty where there is none, or its parts aren't numbered rightly.
QByteArray embeddedProfile(const QByteArray& jpeg);

} // namespace test_support
