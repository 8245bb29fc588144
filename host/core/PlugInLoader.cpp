#include "host/core/PlugInLoader.h"

#include "hostapi/PlugInModule.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QPluginLoader>

namespace host {

namespace {

QString modulePath(const QString& bundlePath) {
    return QDir(bundlePath).absoluteFilePath(hostapi::kModuleFileName);
}

} // namespace

bool isPlugInBundle(const QString& path) {
    return QFileInfo(modulePath(path)).isFile();
}

std::shared_ptr<hostapi::ApertureExportPlugIn> loadPlugIn(const QString& bundlePath,
                                                          hostapi::PROAPIObject& apiManager, QString& error) {
    // A loader that is destroyed leaves its module loaded.
    QPluginLoader loader(modulePath(bundlePath));
    QObject* const root = loader.instance();
    if (!root) {
        error = loader.errorString();
        return nullptr;
    }
    auto* const module = qobject_cast<hostapi::PlugInModule*>(root);
    if (!module) {
        error = QStringLiteral("%1 is no export plug-in").arg(modulePath(bundlePath));
        return nullptr;
    }
    return module->initWithAPIManager(&apiManager, QDir(bundlePath).absolutePath(), &error);
}

} // namespace host
