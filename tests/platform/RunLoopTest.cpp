#include "platform/RunLoop.h"
#include "platform/Thread.h"

#include "tests/support/Waiting.h"

#include <QtCore/QEventLoop>
#include <QtCore/QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using namespace platform;
using test_support::waitUntil;

namespace {

/// A thread that runs an event loop until it is told to end.
class LoopThread {
public:
    LoopThread() {
        std::promise<std::shared_ptr<RunLoop>> made;
        auto loop = made.get_future();
        thread_ = std::thread([&made] {
            QEventLoop events;
            made.set_value(RunLoop::current());
            events.exec();
        });
        loop_ = loop.get();
    }
    ~LoopThread() { end(); }

    /// On the thread itself: ends its event loop.
    static void quit() { QThread::currentThread()->quit(); }
    void end() {
        if (!thread_.joinable())
            return;
        loop_->post(&LoopThread::quit);
        thread_.join();
    }
    std::thread::id id() const { return thread_.get_id(); }
    const std::shared_ptr<RunLoop>& loop() const { return loop_; }

private:
    std::thread thread_;
    std::shared_ptr<RunLoop> loop_;
};

TEST(RunLoopTest, PostedWorkRunsLaterOnTheLoopsThreadInItsOrder) {
    std::vector<int> ran;
    for (int piece = 0; piece < 5; ++piece)
        RunLoop::main()->post([&ran, piece] { ran.push_back(piece); });
    EXPECT_TRUE(ran.empty());
    ASSERT_TRUE(waitUntil([&] { return ran.size() == 5; }));
    EXPECT_EQ(ran, (std::vector{0, 1, 2, 3, 4}));
}

TEST(RunLoopTest, WorkFollowsWithinANestedLoop) {
    bool inner = false;
    bool outerEnded = false;
    RunLoop::main()->post([&] {
        QEventLoop nested;
        RunLoop::main()->post([&] {
            inner = true;
            nested.quit();
        });
        nested.exec();
        outerEnded = true;
    });
    ASSERT_TRUE(waitUntil([&] { return outerEnded; }));
    EXPECT_TRUE(inner);
}

TEST(RunLoopTest, CallOnItsOwnThreadRunsDirectly) {
    bool ran = false;
    EXPECT_TRUE(RunLoop::main()->call([&] { ran = true; }));
    EXPECT_TRUE(ran);
}

TEST(RunLoopTest, CallOfAnotherThreadWaitsForTheEndOfTheWork) {
    LoopThread other;
    std::thread::id ranOn;
    EXPECT_TRUE(other.loop()->call([&] {
        QThread::msleep(20);
        ranOn = std::this_thread::get_id();
    }));
    EXPECT_EQ(ranOn, other.id());
}

TEST(RunLoopTest, EachThreadHasOneLoopAndMainHasItsOwn) {
    LoopThread other;
    EXPECT_EQ(RunLoop::current(), RunLoop::main());
    EXPECT_TRUE(RunLoop::main()->isCurrent());
    EXPECT_FALSE(other.loop()->isCurrent());
    other.loop()->call([&] {
        EXPECT_EQ(RunLoop::current(), other.loop());
        EXPECT_TRUE(other.loop()->isCurrent());
        EXPECT_FALSE(RunLoop::main()->isCurrent());
    });
}

TEST(RunLoopTest, WorkOfManyThreadsRunsOnceEach) {
    constexpr int kThreads = 4;
    constexpr int kPieces = 200;
    int ran = 0; // Touched on the main thread alone.
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&ran] {
            for (int piece = 0; piece < kPieces; ++piece)
                RunLoop::main()->post([&ran, gift = std::make_unique<int>(1).release()] {
                    ran += *gift;
                    delete gift;
                });
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(waitUntil([&] { return ran == kThreads * kPieces; }));
}

TEST(RunLoopTest, WorkForAThreadThatHasEndedIsDroppedAndNobodyWaits) {
    LoopThread other;
    const auto loop = other.loop();
    other.end();
    const auto held = std::make_shared<int>(0);
    loop->post([held] { FAIL(); });
    EXPECT_FALSE(loop->call([held] { FAIL(); }));
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_FALSE(loop->isCurrent());
}

TEST(RunLoopTest, CallThatTheThreadNoLongerGetsToReturnsFalse) {
    LoopThread other;
    std::atomic<bool> isBusy{false};
    std::atomic<bool> mayEnd{false};
    other.loop()->post([&] {
        isBusy = true;
        while (!mayEnd)
            QThread::msleep(1);
        LoopThread::quit();
    });
    ASSERT_TRUE(waitUntil([&] { return isBusy.load(); }));
    std::atomic<bool> hasReturned{false};
    std::thread caller([&] {
        bool ran = false;
        const bool result = other.loop()->call([&] { ran = true; });
        EXPECT_EQ(result, ran);
        hasReturned = true;
    });
    mayEnd = true;
    EXPECT_TRUE(waitUntil([&] { return hasReturned.load(); }));
    caller.join();
}

TEST(RunLoopTest, WhatPostedWorkRefersToIsReleasedOnceItHasRun) {
    const auto held = std::make_shared<int>(0);
    RunLoop::main()->post([held] {});
    EXPECT_EQ(held.use_count(), 2);
    ASSERT_TRUE(waitUntil([&] { return held.use_count() == 1; }));
}

TEST(ThreadTest, RunsUntilItsBodyIsDoneAndReleased) {
    const auto held = std::make_shared<int>(0);
    std::atomic<bool> mayEnd{false};
    const auto thread = Thread::start("worker", [held, &mayEnd] {
        while (!mayEnd)
            std::this_thread::yield();
    });
    EXPECT_TRUE(thread->isRunning());
    mayEnd = true;
    ASSERT_TRUE(waitUntil([&] { return !thread->isRunning(); }));
    EXPECT_EQ(held.use_count(), 1);
}

TEST(ThreadTest, GoesOnWithoutItsHandle) {
    std::atomic<bool> hasRun{false};
    Thread::start("a name of more than fifteen characters", [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds{20});
        hasRun = true;
    });
    EXPECT_TRUE(waitUntil([&] { return hasRun.load(); }));
}

} // namespace
