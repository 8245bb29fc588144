#pragma once

#include <functional>
#include <memory>
#include <string>

namespace platform {

/// A handle of a worker thread that nobody waits for.
///
/// The thread keeps what its body refers to; dropping the handle changes nothing for it.
class Thread {
public:
    /// Starts a thread of that name (at most 15 characters) which runs `body` once. Empty where the system
    /// has none left; `body` is gone then, and has not run.
    static std::shared_ptr<Thread> start(const std::string& name, std::function<void()> body);

    /// True until the body has returned and all that it referred to is released. Any thread.
    bool isRunning() const;

private:
    struct State;
    explicit Thread(std::shared_ptr<State> state);
    std::shared_ptr<State> state_;
};

} // namespace platform
