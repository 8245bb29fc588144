#pragma once

#include "hostapi/ApertureExportManager.h"
#include "hostapi/HostServices.h"

#include <memory>

namespace host {

/// What a host gives a plug-in in place of the desktop's own; an empty pointer stands for that.
struct Services {
    std::shared_ptr<hostapi::AlertPresenter> alertPresenter;
    std::shared_ptr<hostapi::CredentialStore> credentialStore;
    std::shared_ptr<hostapi::DefaultsStore> defaultsStore;
    std::shared_ptr<hostapi::ExportObserver> observer;
};

/// The object through which a plug-in finds its export manager and the host's services. It must outlive the
/// plug-in, and keeps what it hands out alive.
class APIManager final : public hostapi::PROAPIObject {
public:
    APIManager(std::shared_ptr<hostapi::ApertureExportManager> exportManager, Services services);

    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String protocol) override;

private:
    const std::shared_ptr<hostapi::ApertureExportManager> exportManager_;
    const std::shared_ptr<hostapi::HostServices> services_;
};

} // namespace host
