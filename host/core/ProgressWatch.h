#pragma once

#include "hostapi/ApertureExportPlugIn.h"

#include <functional>
#include <memory>
#include <mutex>

namespace host {

/// Looks at a plug-in's progress record and tells of every change that it sees. Any thread.
class ProgressWatch {
public:
    /// `changed` is called on the main thread, with the records in the order in which they were seen.
    ProgressWatch(std::weak_ptr<hostapi::ApertureExportPlugIn> plugIn,
                  std::function<void(const hostapi::ExportProgress&)> changed);

    void look();

private:
    const std::weak_ptr<hostapi::ApertureExportPlugIn> plugIn_;
    const std::function<void(const hostapi::ExportProgress&)> changed_;
    std::mutex mutex_;
    hostapi::ExportProgress last_;
};

} // namespace host
