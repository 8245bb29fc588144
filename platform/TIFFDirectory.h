#pragma once

#include <QtCore/QByteArrayView>

#include <optional>

namespace platform {

/// What the first directory of a TIFF file (TIFF 6.0, and BigTIFF) says that libvips does not pass on.
struct TIFFDirectory {
    /// What the first component behind the colour is: "ExtraSamples" of TIFF 6.0, section 18.
    enum class ExtraSample { Untold, Unspecified, Alpha };
    ExtraSample extraSample = ExtraSample::Untold;

    /// Without a value where a directory of the file, or one of its values, lies in part behind the end of
    /// `file`: the file was cut off. The data may be anything.
    static std::optional<TIFFDirectory> read(QByteArrayView file);
};

} // namespace platform
