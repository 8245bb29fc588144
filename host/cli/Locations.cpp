#include "host/cli/Locations.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace host::cli {

namespace {

const QString kModuleName = QStringLiteral("quillmark-export.so");
const QString kBundleName = QStringLiteral("Quillmark.bundle");
/// From the program's folder to that of the installation's modules.
const QString kInstalledModules = QStringLiteral(QUILLMARK_MODULES_FROM_PROGRAM);
/// From the program's folder to the root of the build folder.
const QString kBuildRoot = QStringLiteral("../..");

} // namespace

QString programFolder() {
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path();
}

QString commandModule() {
    const QString built = programFolder() + QLatin1Char('/') + kModuleName;
    return QFileInfo::exists(built)
               ? built
               : programFolder() + QLatin1Char('/') + kInstalledModules + QLatin1Char('/') + kModuleName;
}

std::optional<QString> installedOrBuiltBundle() {
    for (const QString& folder : {kInstalledModules, kBuildRoot}) {
        const QString bundle = programFolder() + QLatin1Char('/') + folder + QLatin1Char('/') + kBundleName;
        if (QFileInfo(bundle).isDir())
            return bundle;
    }
    return std::nullopt;
}

} // namespace host::cli
