#include "host/cli/Interruption.h"

#include "host/cli/InterruptingSignals.h"
#include "host/cli/Output.h"
#include "platform/Thread.h"

#include <fcntl.h>
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
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return;
    readEnd_ = ends[0];
    holdInterruptingSignals();
    platform::Thread::start(
        "signals", [signals = interruptingSignals(), writeEnd = ends[1], atSecond = std::move(atSecond)] {
            waitForOne(signals);
            // Never read: the other end stays readable for all who look at it.
            writeAll(writeEnd, "!");
            waitForOne(signals);
            atSecond();
        });
}

} // namespace host::cli
