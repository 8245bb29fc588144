#include "host/desktop/ShowingAlertPresenter.h"

#include "platform/Alert.h"
#include "platform/RunLoop.h"

namespace host::desktop {

namespace {

platform::AlertStyle styleOf(const hostapi::Alert& alert) {
    switch (alert.style) {
    case hostapi::AlertStyle::Warning:
        return platform::AlertStyle::Warning;
    case hostapi::AlertStyle::Informational:
        return platform::AlertStyle::Informational;
    case hostapi::AlertStyle::Critical:
        break;
    }
    return platform::AlertStyle::Critical;
}

platform::Alert desktopAlert(const hostapi::Alert& alert) {
    return {styleOf(alert), alert.message, alert.informativeText};
}

} // namespace

ShowingAlertPresenter::ShowingAlertPresenter(std::weak_ptr<AlertWitness> witness)
    : witness_(std::move(witness)) {}

void ShowingAlertPresenter::runModal(const hostapi::Alert& alert) {
    platform::RunLoop::main()->post([witness = witness_, alert] {
        if (const auto alive = witness.lock())
            alive->alertShown(alert);
    });
    desktopAlert(alert).runModal();
    platform::RunLoop::main()->post([witness = witness_] {
        if (const auto alive = witness.lock())
            alive->alertAnswered();
    });
}

void ShowingAlertPresenter::beginSheet(const hostapi::Alert& alert, QWidget* window) {
    desktopAlert(alert).beginSheet(window);
}

} // namespace host::desktop
