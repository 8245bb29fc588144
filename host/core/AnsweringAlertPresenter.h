#pragma once

#include "hostapi/HostServices.h"

#include <memory>

namespace host {

enum class AlertModality { Application, Sheet };

/// Is told of alerts. Main thread.
class AlertReader {
public:
    virtual ~AlertReader() = default;
    virtual void alertShown(const hostapi::Alert& alert, AlertModality modality) = 0;
};

/// Answers every alert with "OK" at once, for a host without a person at the screen; `reader` is told on the
/// main thread, in the order in which the alerts came.
class AnsweringAlertPresenter final : public hostapi::AlertPresenter {
public:
    explicit AnsweringAlertPresenter(std::weak_ptr<AlertReader> reader);

    void runModal(const hostapi::Alert& alert) override;
    void beginSheet(const hostapi::Alert& alert, QWidget* window) override;

private:
    void handOver(const hostapi::Alert& alert, AlertModality modality);

    const std::weak_ptr<AlertReader> reader_;
};

} // namespace host
