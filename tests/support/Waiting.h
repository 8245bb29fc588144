#pragma once

#include <chrono>
#include <functional>

namespace test_support {

inline constexpr std::chrono::seconds kDeadline{20};

/// Runs the main thread's event loop until `condition` holds; false where it does not within `deadline`.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds deadline = kDeadline);

/// Runs the main thread's event loop for as long as given: for what must *not* happen.
void runLoopFor(std::chrono::milliseconds duration);

} // namespace test_support
