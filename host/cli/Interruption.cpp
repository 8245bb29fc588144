#include "host/cli/Interruption.h"

#include "host/cli/InterruptingSignals.h"
#include "host/cli/Output.h"
#include "platform/Thread.h"

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>

namespace host::cli {

namespace {

void waitForOne(const sigset_t& signals) {
    int received = 0;
    while (sigwait(&signals, &received) != 0) {
    }
}

} // namespace

Interruption::Interruption(std::function<void()> atSecond) {
    holdInterruptingSignals();
    if (!startThread(std::move(atSecond))) {
        // The first signal is heard all the same.
        const sigset_t signals = interruptingSignals();
        descriptor_ = signalfd(-1, &signals, SFD_CLOEXEC);
    }
}

bool Interruption::startThread(std::function<void()> atSecond) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return false;
    const auto thread = platform::Thread::start(
        "signals", [signals = interruptingSignals(), writeEnd = ends[1], atSecond = std::move(atSecond)] {
            waitForOne(signals);
            // Never read: the other end stays readable for all who look at it.
            writeAll(writeEnd, "!");
            waitForOne(signals);
            atSecond();
        });
    if (!thread) {
        close(ends[0]);
        close(ends[1]);
        return false;
    }
    descriptor_ = ends[0];
    return true;
}

} // namespace host::cli
