#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <cstdint>
#include <functional>
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
    /// The same of a file of `size` bytes that is not in memory. `bytes` gives as many as it is asked for,
    /// fewer where they can't be read, which is as if they were behind the end.
    using Bytes = std::function<QByteArray(std::uint64_t position, std::uint64_t count)>;
    static std::optional<TIFFDirectory> read(std::uint64_t size, const Bytes& bytes);
};

} // namespace platform
