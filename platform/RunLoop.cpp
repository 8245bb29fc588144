#include "platform/RunLoop.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QObject>
#include <QtCore/QThread>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace platform {

namespace {

/// One piece of work and its end, for the thread that may wait for it.
struct Work {
    std::function<void()> body;
    std::mutex mutex;
    std::condition_variable ended;
    bool isEnded = false;
    bool hasRun = false;

    void end(bool run) {
        body = nullptr;
        const std::lock_guard lock(mutex);
        isEnded = true;
        hasRun = run;
        ended.notify_all();
    }
};

} // namespace

/// The pending work of a loop, and the QObject in its thread that is woken for each piece.
class RunLoop::Inbox {
public:
    explicit Inbox(QThread* thread)
        : thread_(thread)
        , waker_(std::make_unique<QObject>()) {
        waker_->moveToThread(thread);
    }

    /// A thread that has ended is nobody's, also where a new one has got its address.
    bool isCurrent() const {
        const std::lock_guard lock(mutex_);
        return waker_ && QThread::currentThread() == thread_;
    }

    void add(const std::shared_ptr<Inbox>& self, std::shared_ptr<Work> work) {
        {
            const std::lock_guard lock(mutex_);
            if (waker_) {
                pending_.push_back(std::move(work));
                // The payload stays in the guarded queue: the event itself carries nothing that two
                // threads would share.
                QMetaObject::invokeMethod(
                    waker_.get(), [self] { self->runNext(); }, Qt::QueuedConnection);
                return;
            }
        }
        work->end(false);
    }

    /// The thread ends: nothing is run any more, and nobody waits for it.
    void close() {
        std::deque<std::shared_ptr<Work>> dropped;
        std::unique_ptr<QObject> waker;
        {
            const std::lock_guard lock(mutex_);
            dropped.swap(pending_);
            waker.swap(waker_);
        }
        for (const auto& work : dropped)
            work->end(false);
    }

private:
    void runNext() {
        std::shared_ptr<Work> work;
        {
            const std::lock_guard lock(mutex_);
            if (pending_.empty())
                return;
            work = std::move(pending_.front());
            pending_.pop_front();
        }
        work->body();
        work->end(true);
    }

    QThread* const thread_;
    mutable std::mutex mutex_;
    std::deque<std::shared_ptr<Work>> pending_;
    std::unique_ptr<QObject> waker_;
};

namespace {

/// Closes a thread's loop when the thread ends.
template <typename Loop>
struct ThreadLoop {
    std::shared_ptr<Loop> loop;
    std::function<void()> close;
    ~ThreadLoop() {
        if (close)
            close();
    }
};

} // namespace

RunLoop::RunLoop() = default;
RunLoop::~RunLoop() = default;

std::shared_ptr<RunLoop> RunLoop::main() {
    // Lives as long as the process: a worker may hand over to it while the application ends.
    static const auto* const loop = [] {
        auto made = std::shared_ptr<RunLoop>(new RunLoop);
        made->inbox_ = std::make_shared<Inbox>(QCoreApplication::instance()->thread());
        return new std::shared_ptr<RunLoop>(std::move(made));
    }();
    return *loop;
}

std::shared_ptr<RunLoop> RunLoop::current() {
    if (main()->isCurrent())
        return main();
    thread_local ThreadLoop<RunLoop> own;
    if (!own.loop) {
        own.loop = std::shared_ptr<RunLoop>(new RunLoop);
        own.loop->inbox_ = std::make_shared<Inbox>(QThread::currentThread());
        own.close = [inbox = own.loop->inbox_] { inbox->close(); };
    }
    return own.loop;
}

void RunLoop::post(std::function<void()> work) {
    auto piece = std::make_shared<Work>();
    piece->body = std::move(work);
    inbox_->add(inbox_, std::move(piece));
}

bool RunLoop::call(std::function<void()> work) {
    if (isCurrent()) {
        work();
        return true;
    }
    auto piece = std::make_shared<Work>();
    piece->body = std::move(work);
    inbox_->add(inbox_, piece);
    std::unique_lock lock(piece->mutex);
    piece->ended.wait(lock, [&] { return piece->isEnded; });
    return piece->hasRun;
}

bool RunLoop::isCurrent() const {
    return inbox_->isCurrent();
}

} // namespace platform
