#pragma once

#include "hostapi/ApertureExportManager.h"

#include <QtCore/QString>

#include <memory>
#include <optional>
#include <vector>

namespace host {

/// What a plug-in tells its export manager, each time it does. Main thread.
class ExportRequests {
public:
    virtual ~ExportRequests() = default;
    virtual void exportShouldBegin() = 0;
    virtual void exportShouldCancel() = 0;
    virtual void exportShouldFinish() = 0;
};

/// The export manager of one export.
///
/// A plug-in may call it on any thread, in the middle of anything: each call is handed over to the main
/// thread, in the order of the calls, and returns at once. Requests that come after `requests` has been
/// destroyed are dropped.
class ExportManager final : public hostapi::ApertureExportManager {
public:
    /// `projects`: for each image the name of its project; none for an image without one.
    ExportManager(std::vector<std::optional<QString>> projects, std::weak_ptr<ExportRequests> requests);

    std::shared_ptr<hostapi::PROAPIObject> apiForProtocol(QLatin1String protocol) override;
    std::uint32_t imageCount() override;
    QVariantMap propertiesForImageAtIndex(std::uint32_t index) override;
    void shouldBeginExport() override;
    void shouldCancelExport() override;
    void shouldFinishExport() override;

private:
    void handOver(void (ExportRequests::*request)());

    const std::vector<std::optional<QString>> projects_;
    const std::weak_ptr<ExportRequests> requests_;
};

} // namespace host
