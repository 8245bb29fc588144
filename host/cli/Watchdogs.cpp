#include "host/cli/Watchdogs.h"

namespace host::cli {

namespace {

constexpr std::chrono::seconds kCancelAfterCriticalAlert{1};
/// Quietness is counted in parts: a process that was suspended meets one of them when it goes on, however
/// long it slept, and has the others to hear what has come meanwhile.
constexpr int kQuietTicks = 10;

} // namespace

Watchdogs::Watchdogs(std::chrono::milliseconds quietLimit)
    : quietLimit_(quietLimit) {
    for (QTimer* const timer : {&quietTimer_, &criticalAlertTimer_, &cancelTimer_}) {
        timer->setSingleShot(true);
        // A coarse one may be early.
        timer->setTimerType(Qt::PreciseTimer);
    }
    quietTimer_.setSingleShot(false);
    quietTimer_.setInterval(quietLimit / kQuietTicks);
    criticalAlertTimer_.setInterval(kCancelAfterCriticalAlert);
    connect(&quietTimer_, &QTimer::timeout, this, &Watchdogs::quietTick);
    connect(&criticalAlertTimer_, &QTimer::timeout, this, &Watchdogs::criticalAlertWithoutCancel);
    connect(&cancelTimer_, &QTimer::timeout, this, &Watchdogs::cancelUnanswered);
}

void Watchdogs::somethingHappened() {
    quietTicks_ = 0;
    if (!quietnessIsAllowed_ && !cancelTimer_.isActive())
        quietTimer_.start();
}

void Watchdogs::quietTick() {
    if (++quietTicks_ < kQuietTicks)
        return;
    quietTimer_.stop();
    Q_EMIT nothingHappens();
}

void Watchdogs::allowQuietness(bool allowed) {
    quietnessIsAllowed_ = allowed;
    quietTimer_.stop();
    somethingHappened();
}

void Watchdogs::criticalAlertAnswered() {
    // Of several alerts the first begins the second: a row of them must not put the cancel off.
    if (!cancelTimer_.isActive() && !criticalAlertTimer_.isActive())
        criticalAlertTimer_.start();
}

void Watchdogs::cancelBegun(std::chrono::milliseconds patience) {
    stop();
    cancelTimer_.start(patience);
}

void Watchdogs::stop() {
    quietTimer_.stop();
    criticalAlertTimer_.stop();
    cancelTimer_.stop();
}

} // namespace host::cli
