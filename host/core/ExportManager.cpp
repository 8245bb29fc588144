#include "host/core/ExportManager.h"

#include "platform/RunLoop.h"

namespace host {

ExportManager::ExportManager(std::vector<std::optional<QString>> projects,
                             std::weak_ptr<ExportRequests> requests)
    : projects_(std::move(projects))
    , requests_(std::move(requests)) {}

std::shared_ptr<hostapi::PROAPIObject> ExportManager::apiForProtocol(QLatin1String) {
    return nullptr;
}

std::uint32_t ExportManager::imageCount() {
    return static_cast<std::uint32_t>(projects_.size());
}

QVariantMap ExportManager::propertiesForImageAtIndex(std::uint32_t index) {
    if (index >= projects_.size() || !projects_[index])
        return {};
    return {{hostapi::kExportKeyProjectName, *projects_[index]}};
}

void ExportManager::shouldBeginExport() {
    handOver(&ExportRequests::exportShouldBegin);
}

void ExportManager::shouldCancelExport() {
    handOver(&ExportRequests::exportShouldCancel);
}

void ExportManager::shouldFinishExport() {
    handOver(&ExportRequests::exportShouldFinish);
}

void ExportManager::handOver(void (ExportRequests::*request)()) {
    platform::RunLoop::main()->post([requests = requests_, request] {
        if (const auto alive = requests.lock())
            (*alive.*request)();
    });
}

} // namespace host
