#include "host/cli/CommandModule.h"

#include "host/core/Locations.h"

#include <QtCore/QFileInfo>

namespace host::cli {

namespace {

const QString kModuleName = QStringLiteral("quillmark-export.so");

} // namespace

QString commandModule() {
    const QString built = programFolder() + QLatin1Char('/') + kModuleName;
    return QFileInfo::exists(built) ? built : installedModulesFolder() + QLatin1Char('/') + kModuleName;
}

} // namespace host::cli
