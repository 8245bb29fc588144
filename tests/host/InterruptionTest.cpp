#include "host/cli/Interruption.h"

#include "host/cli/InterruptingSignals.h"
#include "tests/support/ThreadShortage.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

using namespace host::cli;

namespace {

bool isReadable(int descriptor, int milliseconds) {
    pollfd entry{descriptor, POLLIN, 0};
    return poll(&entry, 1, milliseconds) == 1 && (entry.revents & POLLIN);
}

constexpr int kSoon = 20'000;

/// In a process of its own, whose signals are nobody else's. Ends with 0 where the first signal is heard,
/// also by whoever looks later.
[[noreturn]] void hearFirstSignal(Interruption& interruption) {
    if (isReadable(interruption.descriptor(), 0))
        _exit(1);
    kill(getpid(), SIGTERM);
    if (!isReadable(interruption.descriptor(), kSoon) || !isReadable(interruption.descriptor(), 0))
        _exit(2);
    _exit(0);
}

[[noreturn]] void hearFirstSignalWithThread() {
    Interruption interruption([] {});
    hearFirstSignal(interruption);
}

[[noreturn]] void hearFirstSignalWithoutThread() {
    const test_support::ThreadShortage shortage;
    Interruption interruption([] { _exit(3); });
    hearFirstSignal(interruption);
}

[[noreturn]] void hearSecondSignal() {
    const Interruption interruption([] { _exit(0); });
    kill(getpid(), SIGTERM);
    if (!isReadable(interruption.descriptor(), kSoon))
        _exit(1);
    kill(getpid(), SIGINT);
    pause();
    _exit(2);
}

} // namespace

TEST(Interruption, MakesItsDescriptorReadable) {
    EXPECT_EXIT(hearFirstSignalWithThread(), testing::ExitedWithCode(0), "");
}

TEST(Interruption, CallsAtTheSecondSignal) {
    EXPECT_EXIT(hearSecondSignal(), testing::ExitedWithCode(0), "");
}

TEST(Interruption, IsHeardWhereTheSystemHasNoThreadLeft) {
    EXPECT_EXIT(hearFirstSignalWithoutThread(), testing::ExitedWithCode(0), "");
}
