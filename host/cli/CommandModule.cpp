#include "host/cli/CommandModule.h"

#include "host/core/Locations.h"

#include <QtCore/QFileInfo>

namespace host::cli {

namespace {

const QString kModuleName = QStringLiteral("quillmark-export.so");
/// Below the installation's modules: what lies among those themselves is taken by packaging tools for a
/// library that is meant for all.
const QString kInstalledFolder = QStringLiteral("/modules/");

} // namespace

QString commandModule() {
    const QString built = programFolder() + QLatin1Char('/') + kModuleName;
    return QFileInfo::exists(built) ? built : installedModulesFolder() + kInstalledFolder + kModuleName;
}

} // namespace host::cli
