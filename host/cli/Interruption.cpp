#include "host/cli/Interruption.h"

#include "host/cli/Output.h"
#include "platform/Thread.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace host::cli {

namespace {

/// What nohup has had ignored stays so.
bool isIgnored(int signalNumber) {
    struct sigaction action {};
    return sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t interruptingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!isIgnored(SIGHUP))
        sigaddset(&signals, SIGHUP);
    return signals;
}

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
    // Blocked in every thread, the signals wait for the one that fetches them, where anything may be called.
    const sigset_t signals = interruptingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    platform::Thread::start("signals", [signals, writeEnd = ends[1], atSecond = std::move(atSecond)] {
        waitForOne(signals);
        // Never read: the other end stays readable for all who look at it.
        writeAll(writeEnd, "!");
        waitForOne(signals);
        atSecond();
    });
}

} // namespace host::cli
