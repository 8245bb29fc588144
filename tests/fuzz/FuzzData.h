#pragma once

#include <QtCore/QByteArray>

#include <cstdint>
#include <cstdlib>

/// The bytes that a fuzzer has made up, as a service's answer. Shares them: nothing is copied.
inline QByteArray answerOf(const std::uint8_t* data, std::size_t size) {
    return QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

/// Ends the fuzzer with a finding.
inline void require(bool condition) {
    if (!condition)
        std::abort();
}
