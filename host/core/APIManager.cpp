#include "host/core/APIManager.h"

namespace host {

namespace {

class OfferedServices final : public hostapi::HostServices {
public:
    explicit OfferedServices(Services services)
        : services_(std::move(services)) {}

    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String) override { return nullptr; }
    hostapi::AlertPresenter* alertPresenter() override { return services_.alertPresenter.get(); }
    hostapi::CredentialStore* credentialStore() override { return services_.credentialStore.get(); }
    hostapi::DefaultsStore* defaultsStore() override { return services_.defaultsStore.get(); }
    hostapi::ExportObserver* observer() override { return services_.observer.get(); }

private:
    const Services services_;
};

} // namespace

APIManager::APIManager(std::shared_ptr<hostapi::ApertureExportManager> exportManager, Services services)
    : exportManager_(std::move(exportManager))
    , services_(std::make_shared<OfferedServices>(std::move(services))) {}

std::shared_ptr<hostapi::PROAPIObject> APIManager::apiForProtocol(QLatin1String protocol) {
    if (protocol == hostapi::ApertureExportManager::kProtocol)
        return exportManager_;
    if (protocol == hostapi::HostServices::kProtocol)
        return services_;
    return nullptr;
}

} // namespace host
