#include "host/cli/InterruptingSignals.h"

namespace host::cli {

namespace {

bool isIgnored(int signalNumber) {
    struct sigaction action {};
    return sigaction(signalNumber, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

sigset_t interruptingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    if (!isIgnored(SIGHUP))
        sigaddset(&signals, SIGHUP);
    return signals;
}

void holdInterruptingSignals() {
    const sigset_t signals = interruptingSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

} // namespace host::cli
