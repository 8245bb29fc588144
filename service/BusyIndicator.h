#pragma once

#include <QtWidgets/QProgressBar>

/// Shows a bar that moves without an end; nothing where the bar is missing.
inline void startAnimation(QProgressBar* indicator) {
    if (!indicator)
        return;
    indicator->setRange(0, 0);
    indicator->show();
}

inline void stopAnimation(QProgressBar* indicator) {
    if (indicator)
        indicator->hide();
}
