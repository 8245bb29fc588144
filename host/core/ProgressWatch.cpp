#include "host/core/ProgressWatch.h"

#include "platform/RunLoop.h"

namespace host {

using hostapi::ExportProgress;

namespace {

bool areEqual(const ExportProgress& a, const ExportProgress& b) {
    return a.currentValue == b.currentValue && a.totalValue == b.totalValue && a.message == b.message &&
           a.indeterminateProgress == b.indeterminateProgress;
}

ExportProgress copyOfRecord(hostapi::ApertureExportPlugIn& plugIn) {
    plugIn.lockProgress();
    ExportProgress copy = *plugIn.progress();
    plugIn.unlockProgress();
    return copy;
}

} // namespace

ProgressWatch::ProgressWatch(std::weak_ptr<hostapi::ApertureExportPlugIn> plugIn,
                             std::function<void(const ExportProgress&)> changed)
    : plugIn_(std::move(plugIn))
    , changed_(std::move(changed)) {}

void ProgressWatch::look() {
    const auto plugIn = plugIn_.lock();
    if (!plugIn)
        return;
    // Two lookers at once must not tell a newer record before an older one.
    const std::lock_guard lock(mutex_);
    ExportProgress record = copyOfRecord(*plugIn);
    if (areEqual(record, last_))
        return;
    last_ = record;
    platform::RunLoop::main()->post([changed = changed_, record = std::move(record)] { changed(record); });
}

} // namespace host
