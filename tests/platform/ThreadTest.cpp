#include "platform/Thread.h"

#include "tests/support/ThreadShortage.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <atomic>

using platform::Thread;
using test_support::waitUntil;

namespace {

TEST(Thread, RunsItsBodyOnceAndThenLetsGoOfIt) {
    std::atomic<int> runs = 0;
    auto referred = std::make_shared<int>();
    const std::weak_ptr<int> watched = referred;
    const auto thread = Thread::start("test", [&runs, kept = std::move(referred)] { ++runs; });
    ASSERT_TRUE(thread);
    EXPECT_TRUE(waitUntil([&] { return !thread->isRunning(); }));
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(runs, 1);
}

TEST(Thread, IsNoneWhereTheSystemHasNoneLeft) {
    const test_support::ThreadShortage shortage;
    auto referred = std::make_shared<int>();
    const std::weak_ptr<int> watched = referred;
    EXPECT_FALSE(Thread::start("test", [kept = std::move(referred)] { FAIL() << "it has run"; }));
    EXPECT_TRUE(watched.expired());
}

} // namespace
