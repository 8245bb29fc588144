#pragma once

#include "hostapi/ApertureExportPlugIn.h"
#include "hostapi/PROAPIObject.h"

#include <QtCore/QString>

#include <memory>

namespace host {

/// Loads the module of the plug-in bundle at `bundlePath` and makes its principal object. Empty, with
/// `error`, where that fails. Main thread, with a QApplication.
///
/// `apiManager` must outlive the object. The module stays in memory as long as the process: threads and
/// types of it do.
std::shared_ptr<hostapi::ApertureExportPlugIn> loadPlugIn(const QString& bundlePath,
                                                          hostapi::PROAPIObject& apiManager, QString& error);

/// Whether the folder at `path` holds a module, as a plug-in's bundle does.
bool isPlugInBundle(const QString& path);

} // namespace host
