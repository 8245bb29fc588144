#pragma once

#include <functional>

namespace host::cli {

/// Ctrl-C, SIGTERM and the loss of the terminal, for the whole process.
///
/// To be made once, before any other thread is started; it lasts as long as the process.
class Interruption {
public:
    /// `atSecond` is called at the second signal, on a thread of its own: the main thread may be stuck. Where
    /// the system has no thread left, a second signal does nothing.
    explicit Interruption(std::function<void()> atSecond);
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// A file descriptor that is readable from the first signal on.
    int descriptor() const { return descriptor_; }

private:
    bool startThread(std::function<void()> atSecond);
    int descriptor_ = -1;
};

} // namespace host::cli
