#pragma once

#include "platform/ServiceConfiguration.h"

#include <QtCore/QString>

#include <optional>

namespace host {

/// Where the plug-in of the bundle at `bundlePath` finds its service. Without a value, and with `error`,
/// where that can't be read.
std::optional<platform::ServiceConfiguration> serviceConfiguration(const QString& bundlePath, QString& error);

/// Tells services apart: the host names, each with the address and port that stand in for it, if any do. An
/// account or an event of one has nothing to do with that of the same name or id of another.
QString serviceIdentity(const platform::ServiceConfiguration& configuration);

} // namespace host
