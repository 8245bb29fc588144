#include "host/core/ObserverRelay.h"

#include "platform/RunLoop.h"

namespace host {

using hostapi::ExportObserver;

ObserverRelay::ObserverRelay(std::weak_ptr<ExportObserver> target)
    : target_(std::move(target)) {}

template <typename... Parameters, typename... Arguments>
void ObserverRelay::handOver(void (ExportObserver::*told)(Parameters...), const Arguments&... arguments) {
    platform::RunLoop::main()->post([target = target_, told, arguments...] {
        if (const auto alive = target.lock())
            (*alive.*told)(arguments...);
    });
}

void ObserverRelay::imagePrepared(std::uint32_t index, const QString& path) {
    handOver(&ExportObserver::imagePrepared, index, path);
}

void ObserverRelay::imageLeftOut(std::uint32_t index) {
    handOver(&ExportObserver::imageLeftOut, index);
}

void ObserverRelay::imageUploaded(const QString& path) {
    handOver(&ExportObserver::imageUploaded, path);
}

void ObserverRelay::listsCouldNotBeLoaded() {
    handOver(&ExportObserver::listsCouldNotBeLoaded);
}

void ObserverRelay::folderChainEnded(bool complete) {
    handOver(&ExportObserver::folderChainEnded, complete);
}

void ObserverRelay::uploadEnded(bool complete) {
    handOver(&ExportObserver::uploadEnded, complete);
}

void ObserverRelay::finishingRequestUnanswered() {
    handOver(&ExportObserver::finishingRequestUnanswered);
}

} // namespace host
