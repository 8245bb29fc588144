#include "host/core/Locations.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

namespace host {

namespace {

const QString kBundleName = QStringLiteral("Quillmark.bundle");
/// From the program's folder to that of the installation's modules.
const QString kInstalledModules = QStringLiteral(QUILLMARK_MODULES_FROM_PROGRAM);
/// From the program's folder to the root of the build folder.
const QString kBuildRoot = QStringLiteral("../..");

} // namespace

QString programFolder() {
    return QFileInfo(QFile::symLinkTarget(QStringLiteral("/proc/self/exe"))).path();
}

QString installedModulesFolder() {
    return programFolder() + QLatin1Char('/') + kInstalledModules;
}

std::optional<QString> installedOrBuiltBundle() {
    for (const QString& folder :
         {installedModulesFolder(), programFolder() + QLatin1Char('/') + kBuildRoot}) {
        const QString bundle = folder + QLatin1Char('/') + kBundleName;
        if (QFileInfo(bundle).isDir())
            return bundle;
    }
    return std::nullopt;
}

} // namespace host
