#pragma once

#include <functional>
#include <memory>

namespace platform {

/// A thread's event loop, as an address to hand work to from any thread.
///
/// Work runs in the order in which it was handed over, one piece an event, also while an earlier piece
/// runs a nested loop. The thread must run a Qt event loop.
class RunLoop {
public:
    /// The loop of the application's main thread (that of QCoreApplication, which must exist).
    static std::shared_ptr<RunLoop> main();
    /// The calling thread's loop. It ends with the thread: what was not run by then is dropped.
    static std::shared_ptr<RunLoop> current();

    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Hands over without waiting.
    void post(std::function<void()> work);
    /// Runs `work` on the loop's thread and waits for its end; directly on one's own thread. Never
    /// call it with a lock held that the loop's thread may want. False where the thread ended first.
    bool call(std::function<void()> work);

    /// True on the loop's own thread, as long as that has not ended.
    bool isCurrent() const;

private:
    class Inbox;
    RunLoop();
    std::shared_ptr<Inbox> inbox_;
};

} // namespace platform
