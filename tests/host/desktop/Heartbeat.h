#pragma once

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <algorithm>
#include <cstddef>
#include <vector>

/// Notes how long the main thread's event loop takes from one beat to the next, in milliseconds.
class Heartbeat {
public:
    Heartbeat() {
        QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] {
            pauses_.push_back(static_cast<double>(clock_.nsecsElapsed()) / 1e6);
            clock_.start();
        });
        timer_.setTimerType(Qt::PreciseTimer);
        timer_.start(2);
        clock_.start();
    }

    double percentile(double part) {
        std::sort(pauses_.begin(), pauses_.end());
        return pauses_[static_cast<std::size_t>(part * static_cast<double>(pauses_.size() - 1))];
    }
    std::size_t count() const { return pauses_.size(); }

private:
    QTimer timer_;
    QElapsedTimer clock_;
    std::vector<double> pauses_;
};
