#pragma once

#include "hostapi/ApertureExportPlugIn.h"
#include "hostapi/PROAPIObject.h"

#include <QtCore/QObject>

#include <memory>

namespace hostapi {

/// A plug-in's bundle is a folder that holds the module, named below, and `Resources/`.
inline constexpr QLatin1String kModuleFileName{"Quillmark.so"};
inline constexpr QLatin1String kResourcesFolderName{"Resources"};

/// The root object of a plug-in module, obtained with QPluginLoader and qobject_cast. Load a module
/// once and never unload it: its threads and types live as long as the process.
class Q_DECL_EXPORT PlugInModule {
public:
    virtual ~PlugInModule() = default;

    /// Makes the plug-in's principal object. Main thread, with a QApplication.
    ///
    /// `apiManager` must outlive the object; `bundlePath` is the bundle's absolute path. Make a fresh
    /// object for each export dialog, one at a time. Empty where the plug-in can't be made, and then
    /// `error`, unless null, tells why. The object may outlive the last reference that the host
    /// drops while work of its own runs; it then ends by itself on the main thread.
    virtual std::shared_ptr<ApertureExportPlugIn>
    initWithAPIManager(PROAPIObject* apiManager, const QString& bundlePath, QString* error) = 0;
};

} // namespace hostapi

#define HOSTAPI_PLUGIN_MODULE_IID "org.quillmark.hostapi.PlugInModule/1"
Q_DECLARE_INTERFACE(hostapi::PlugInModule, HOSTAPI_PLUGIN_MODULE_IID)
