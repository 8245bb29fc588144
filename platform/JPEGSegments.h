#pragma once

#include <QtCore/QByteArray>

#include <optional>

namespace platform {

/// `jpeg` with `profile` embedded: in APP2 segments that follow the start of the image and its JFIF
/// segment (ICC.1, annex B.4). Without a value where the profile needs more than the 255 segments
/// that can be numbered, or `jpeg` doesn't begin as a JPEG does.
std::optional<QByteArray> withICCProfile(const QByteArray& jpeg, const QByteArray& profile);

} // namespace platform
