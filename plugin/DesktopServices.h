#pragma once

#include "hostapi/HostServices.h"

/// The desktop's own services, for a host that gives none. They live as long as the process.
namespace desktop_services {

hostapi::AlertPresenter& alerts();
hostapi::CredentialStore& credentials();
hostapi::DefaultsStore& defaults();
/// Does nothing with what it is told: the desktop has no place for it.
hostapi::ExportObserver& observer();

} // namespace desktop_services
