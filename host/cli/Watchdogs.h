#pragma once

#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>

namespace host::cli {

/// The clocks that keep an export from waiting for ever. Main thread.
class Watchdogs : public QObject {
    Q_OBJECT

public:
    /// `quietLimit`: how long nothing may happen.
    explicit Watchdogs(std::chrono::milliseconds quietLimit);

    std::chrono::milliseconds quietLimit() const { return quietLimit_; }

    /// Starts the clock of quietness anew.
    void somethingHappened();
    /// While quietness is allowed, that clock stands: work goes on without a sign of it.
    void allowQuietness(bool allowed);
    /// The plug-in is now expected to cancel by itself.
    void criticalAlertAnswered();
    /// From now on only the answer to the cancel is waited for.
    void cancelBegun(std::chrono::milliseconds patience);
    void stop();

Q_SIGNALS:
    void nothingHappens();
    void criticalAlertWithoutCancel();
    void cancelUnanswered();

private:
    void quietTick();

    const std::chrono::milliseconds quietLimit_;
    bool quietnessIsAllowed_ = false;
    int quietTicks_ = 0;
    QTimer quietTimer_;
    QTimer criticalAlertTimer_;
    QTimer cancelTimer_;
};

} // namespace host::cli
