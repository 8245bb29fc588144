#include "plugin/Environment.h"

#include "plugin/DesktopServices.h"

namespace {

/// The host's service, or the desktop's own where the host has none.
template <typename Service>
Service& hostsOr(Service* hosts, Service& desktops) {
    return hosts ? *hosts : desktops;
}

} // namespace

std::shared_ptr<const Environment> Environment::make(hostapi::PROAPIObject& apiManager,
                                                     const QString& bundlePath, QString* error) {
    const platform::Bundle bundle(bundlePath);
    auto configuration = platform::ServiceConfiguration::load(bundle.resourcesPath(), error);
    if (!configuration)
        return nullptr;

    const auto host = hostapi::apiForProtocol<hostapi::HostServices>(apiManager);
    return std::shared_ptr<const Environment>(new Environment{
        bundle,
        *std::move(configuration),
        host,
        hostsOr(host ? host->alertPresenter() : nullptr, desktop_services::alerts()),
        hostsOr(host ? host->credentialStore() : nullptr, desktop_services::credentials()),
        hostsOr(host ? host->defaultsStore() : nullptr, desktop_services::defaults()),
        hostsOr(host ? host->observer() : nullptr, desktop_services::observer()),
    });
}
