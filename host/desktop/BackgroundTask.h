#pragma once

#include <functional>
#include <string>

namespace host::desktop {

/// Runs `body` once on a thread of that name (at most 15 characters). Where the system has none left, it is
/// tried again every second until there is one. Main thread.
void runInBackground(const std::string& name, const std::function<void()>& body);

/// Runs `work` on a thread of that name (at most 15 characters), and then `then` in the main thread's event
/// loop. Where the system has no thread left, `work` runs at once: a pause is better than an export that
/// waits for a thread. Main thread.
void runBeside(const std::string& name, std::function<void()> work, std::function<void()> then);

} // namespace host::desktop
