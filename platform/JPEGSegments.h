#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

#include <optional>

namespace platform {

/// `jpeg` with `profile` embedded: in APP2 segments that follow the start of the image and its JFIF
/// segment (ICC.1, annex B.4). Without a value where the profile needs more than the 255 segments
/// that can be numbered, or `jpeg` doesn't begin as a JPEG does.
std::optional<QByteArray> withICCProfile(const QByteArray& jpeg, const QByteArray& profile);

/// The scans that a decoder passes the whole picture for, one after the other: a dozen in a progressive JPEG,
/// one in most others. The data may be anything.
int scanCount(QByteArrayView jpeg);

} // namespace platform
