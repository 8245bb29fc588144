#pragma once

#include <functional>
#include <string>

namespace host::desktop {

/// Runs `body` once on a thread of that name (at most 15 characters). Where the system has none left, it is
/// tried again every second until there is one. Main thread.
void runInBackground(const std::string& name, const std::function<void()>& body);

} // namespace host::desktop
