#pragma once

#include "hostapi/HostServices.h"

#include <memory>

namespace host::desktop {

/// Is told of modal alerts. Main thread, in the order in which it happens.
class AlertWitness {
public:
    virtual ~AlertWitness() = default;
    virtual void alertShown(const hostapi::Alert& alert) = 0;
    virtual void alertAnswered() = 0;
};

/// Shows a plug-in's alerts on the desktop, and tells what they say.
class ShowingAlertPresenter final : public hostapi::AlertPresenter {
public:
    explicit ShowingAlertPresenter(std::weak_ptr<AlertWitness> witness);

    void runModal(const hostapi::Alert& alert) override;
    void beginSheet(const hostapi::Alert& alert, QWidget* window) override;

private:
    const std::weak_ptr<AlertWitness> witness_;
};

} // namespace host::desktop
