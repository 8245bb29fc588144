#pragma once

#include "hostapi/ExportProgress.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstdint>
#include <optional>

class QWidget;

namespace hostapi {

/// An export plug-in's principal object, as a host drives it.
///
/// Order of the calls: `settingsView`, `firstView`, `lastView`, `willBeActivated` and the fixed
/// questions while the export dialog is open; `exportManagerShouldBeginExport` when the user asks for
/// the export; after the plug-in has told its export manager `shouldBeginExport`,
/// `exportManagerWillBeginExportToPath`, then for each image the four image callbacks in the order
/// in which they stand here, then `exportManagerDidFinishExport`. `exportManagerShouldCancelExport`
/// comes whenever the user cancels. The export goes on after `exportManagerDidFinishExport`: it ends
/// when the plug-in tells `shouldFinishExport` or `shouldCancelExport`.
///
/// Threads: everything on the main thread, but the image callbacks, which may come on an export
/// thread, and `exportManagerDidFinishExport`, which may come on an export thread that runs an event
/// loop. `progress`, `lockProgress` and `unlockProgress`: any thread. Nothing is ever thrown.
class Q_DECL_EXPORT ApertureExportPlugIn {
public:
    virtual ~ApertureExportPlugIn() = default;

    virtual bool allowsOnlyPlugInPresets() = 0;
    virtual bool allowsMasterExport() = 0;
    virtual bool allowsVersionExport() = 0;
    virtual bool wantsFileNamingControls() = 0;
    virtual bool wantsDestinationPathPrompt() = 0;

    /// The folder to export to, for a host that does not ask its user for one.
    virtual QString destinationPath() = 0;
    /// The folder at which the host's own prompt starts, if the plug-in has a wish.
    virtual std::optional<QString> defaultDirectory() = 0;

    /// The panel to embed in the export dialog; null where it could not be loaded. The host may give
    /// it a parent, and then destroys it with that parent.
    virtual QWidget* settingsView() = 0;
    virtual QWidget* firstView() = 0;
    virtual QWidget* lastView() = 0;

    virtual void willBeActivated() = 0;
    virtual void willBeDeactivated() = 0;

    virtual void exportManagerExportTypeDidChange() = 0;
    virtual void exportManagerShouldBeginExport() = 0;
    virtual void exportManagerWillBeginExportToPath(const QString& path) = 0;

    virtual bool exportManagerShouldExportImageAtIndex(std::uint32_t index) = 0;
    virtual void exportManagerWillExportImageAtIndex(std::uint32_t index) = 0;
    /// Offers the encoded image. True: the host writes it to `relativePath` below the export folder.
    /// False: the plug-in has done what it wants with it.
    virtual bool exportManagerShouldWriteImageData(const QByteArray& imageData, const QString& relativePath,
                                                   std::uint32_t index) = 0;
    virtual void exportManagerDidWriteImageDataToRelativePath(const QString& relativePath,
                                                              std::uint32_t index) = 0;

    virtual void exportManagerDidFinishExport() = 0;
    virtual void exportManagerShouldCancelExport() = 0;

    /// The record, valid as long as the plug-in; read it between the two calls below.
    virtual ExportProgress* progress() = 0;
    virtual void lockProgress() = 0;
    virtual void unlockProgress() = 0;
};

} // namespace hostapi
