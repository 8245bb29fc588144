#include "host/core/AnsweringAlertPresenter.h"

#include "platform/RunLoop.h"

namespace host {

AnsweringAlertPresenter::AnsweringAlertPresenter(std::weak_ptr<AlertReader> reader)
    : reader_(std::move(reader)) {}

void AnsweringAlertPresenter::runModal(const hostapi::Alert& alert) {
    handOver(alert, AlertModality::Application);
}

void AnsweringAlertPresenter::beginSheet(const hostapi::Alert& alert, QWidget*) {
    handOver(alert, AlertModality::Sheet);
}

void AnsweringAlertPresenter::handOver(const hostapi::Alert& alert, AlertModality modality) {
    platform::RunLoop::main()->post([reader = reader_, alert, modality] {
        if (const auto alive = reader.lock())
            alive->alertShown(alert, modality);
    });
}

} // namespace host
