#pragma once

#include "hostapi/PROAPIObject.h"

#include <QtCore/QString>
#include <QtCore/QVariantMap>

#include <cstdint>

namespace hostapi {

/// Key of an image's project name in `propertiesForImageAtIndex`; its value is a QString.
inline constexpr QLatin1String kExportKeyProjectName{"kExportKeyProjectName"};

/// The host's side of one export: what a plug-in asks, and the three things it tells.
///
/// The three `should...` calls may come on any thread, more than once, and a finish may follow a
/// cancel. An implementation must return at once: it may not wait for the plug-in or destroy it
/// inside the call.
class Q_DECL_EXPORT ApertureExportManager : public PROAPIObject {
public:
    static constexpr QLatin1String kProtocol{"ApertureExportManager"};

    /// Number of images in the export. Any thread.
    virtual std::uint32_t imageCount() = 0;

    /// What the host knows of the image (`kExportKeyProjectName`); empty for an unknown index.
    /// Called on the thread that makes the image callbacks.
    virtual QVariantMap propertiesForImageAtIndex(std::uint32_t index) = 0;

    /// Asks the host to start the export; it answers with `exportManagerWillBeginExportToPath` and
    /// the image callbacks, after this call has returned.
    virtual void shouldBeginExport() = 0;

    /// Asks the host to abandon the export.
    virtual void shouldCancelExport() = 0;

    /// Tells the host that the export is complete.
    virtual void shouldFinishExport() = 0;
};

} // namespace hostapi
