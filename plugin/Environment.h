#pragma once

#include "hostapi/HostServices.h"
#include "platform/Bundle.h"
#include "platform/ServiceConfiguration.h"

#include <memory>

/// What stands around the principal object and never changes while it lives: its bundle, where the
/// service is, and whom it speaks to. Where the host gives no service of its own, the desktop's is used.
struct Environment {
    platform::Bundle bundle;
    platform::ServiceConfiguration configuration;
    std::shared_ptr<hostapi::HostServices> hostServices; ///< Keeps the host's; may be empty.

    hostapi::AlertPresenter& alerts;
    hostapi::CredentialStore& credentials;
    hostapi::DefaultsStore& defaults;
    hostapi::ExportObserver& observer;

    /// The environment for the bundle at `bundlePath`. Empty, with `error`, where the service
    /// configuration can't be read.
    static std::shared_ptr<const Environment> make(hostapi::PROAPIObject& apiManager,
                                                   const QString& bundlePath, QString* error);
};
