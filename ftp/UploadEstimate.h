#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

/// How long an upload still takes, as its message says it.
struct TimeLeft {
    std::int32_t minutes = 0; ///< Not capped at two digits.
    std::int32_t seconds = 0; ///< Has the sign of the whole estimate.
};

namespace upload_estimate {

static_assert(std::numeric_limits<double>::is_iec559, "a rate of zero must make the time left infinite");

/// A signed 32-bit sum that wraps around.
constexpr std::int32_t wrappedSum(std::int32_t left, std::int32_t right) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(left) + static_cast<std::uint32_t>(right));
}

/// The bytes sent including `justWritten`: a signed 32-bit sum of which only the low 32 bits of
/// `currentValue` are part. Above 2 GiB it wraps around.
constexpr std::int32_t bytesSent(std::int32_t justWritten, std::uint64_t currentValue) {
    return wrappedSum(justWritten, static_cast<std::int32_t>(currentValue));
}

/// The number of the file in transfer, counted from 1, after so many that have been uploaded.
constexpr std::int32_t fileNumber(std::int32_t uploaded) {
    return wrappedSum(uploaded, 1);
}

/// `value` truncated toward zero; the nearest 32-bit integer where it fits none. Not a number is 0: where
/// nothing is sent in no time, nothing is known of the time left.
inline std::int32_t truncated(double value) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (std::isnan(value))
        return 0;
    if (value >= static_cast<double>(Limits::max()))
        return Limits::max();
    if (value <= static_cast<double>(Limits::min()))
        return Limits::min();
    return static_cast<std::int32_t>(value);
}

/// The estimate by the average rate since the upload began: `elapsed` is in seconds.
inline TimeLeft timeLeft(std::int32_t sent, std::uint64_t totalBytes, double elapsed) {
    const auto remaining = static_cast<double>(totalBytes - static_cast<std::uint64_t>(std::int64_t{sent}));
    const double rate = sent / elapsed;
    const double secondsLeft = remaining / rate;
    return {truncated(secondsLeft / 60.0), truncated(secondsLeft) % 60};
}

} // namespace upload_estimate
