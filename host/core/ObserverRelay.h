#pragma once

#include "hostapi/HostServices.h"

#include <memory>

namespace host {

/// Hands what a plug-in tells its observer over to the main thread, where `target` is told in the same order.
/// What comes after `target` has been destroyed is dropped.
class ObserverRelay final : public hostapi::ExportObserver {
public:
    explicit ObserverRelay(std::weak_ptr<hostapi::ExportObserver> target);

    void imagePrepared(std::uint32_t index, const QString& path) override;
    void imageLeftOut(std::uint32_t index) override;
    void imageUploaded(const QString& path) override;
    void listsCouldNotBeLoaded() override;
    void folderChainEnded(bool complete) override;
    void uploadEnded(bool complete) override;
    void finishingRequestUnanswered() override;

private:
    template <typename... Parameters, typename... Arguments>
    void handOver(void (hostapi::ExportObserver::*told)(Parameters...), const Arguments&... arguments);

    const std::weak_ptr<hostapi::ExportObserver> target_;
};

} // namespace host
