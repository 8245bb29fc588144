#include "host/cli/Watchdogs.h"

namespace host::cli {

namespace {

constexpr std::chrono::seconds kCancelAfterCriticalAlert{1};

} // namespace

Watchdogs::Watchdogs(std::chrono::milliseconds quietLimit) {
    for (QTimer* const timer : {&quietTimer_, &criticalAlertTimer_, &cancelTimer_}) {
        timer->setSingleShot(true);
        // A coarse one may be early.
        timer->setTimerType(Qt::PreciseTimer);
    }
    quietTimer_.setInterval(quietLimit);
    criticalAlertTimer_.setInterval(kCancelAfterCriticalAlert);
    connect(&quietTimer_, &QTimer::timeout, this, &Watchdogs::nothingHappens);
    connect(&criticalAlertTimer_, &QTimer::timeout, this, &Watchdogs::criticalAlertWithoutCancel);
    connect(&cancelTimer_, &QTimer::timeout, this, &Watchdogs::cancelUnanswered);
}

void Watchdogs::somethingHappened() {
    if (!quietnessIsAllowed_ && !cancelTimer_.isActive())
        quietTimer_.start();
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
