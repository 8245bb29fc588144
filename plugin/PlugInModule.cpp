#include "hostapi/PlugInModule.h"

#include "plugin/Quillmark.h"

namespace {

/// The module's root object, which a host obtains from QPluginLoader.
class QuillmarkModule final : public QObject, public hostapi::PlugInModule {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID HOSTAPI_PLUGIN_MODULE_IID)
    Q_INTERFACES(hostapi::PlugInModule)

public:
    std::shared_ptr<hostapi::ApertureExportPlugIn> initWithAPIManager(hostapi::PROAPIObject* apiManager,
                                                                      const QString& bundlePath,
                                                                      QString* error) override {
        return Quillmark::initWithAPIManager(apiManager, bundlePath, error);
    }
};

} // namespace

#include "PlugInModule.moc"
