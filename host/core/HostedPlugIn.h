#pragma once

#include "host/core/APIManager.h"
#include "host/core/ExportManager.h"
#include "host/core/ExportThread.h"
#include "host/core/FixedAnswers.h"
#include "host/core/ProgressWatch.h"

#include <QtCore/QTimer>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace host {

/// Is told all about an export. Main thread.
class ExportClient : public ExportRequests, public hostapi::ExportObserver, public ExportThreadClient {
public:
    /// The record has changed.
    virtual void exportProgressed(const hostapi::ExportProgress& progress) = 0;
};

/// The plug-in object of one export, and its host's calls to it in the order of the protocol: they are made
/// in the order in which the operations stand here. Main thread.
class HostedPlugIn {
public:
    /// Makes the object, which knows its client by weak references. Of `images` it is told the projects. Its
    /// temporary folder is emptied: call `reconcileJournals` before. Empty, with `error`, where there is none
    /// to be had.
    static std::unique_ptr<HostedPlugIn> make(const QString& bundlePath, Services services,
                                              const std::vector<ExportedImage>& images,
                                              const std::weak_ptr<ExportClient>& client, QString& error);
    /// What the plug-in still has under way may outlive it.
    ~HostedPlugIn();
    HostedPlugIn(const HostedPlugIn&) = delete;
    HostedPlugIn& operator=(const HostedPlugIn&) = delete;

    /// Null where the plug-in has none.
    QWidget* settingsView() { return plugIn_->settingsView(); }
    QWidget* firstView() { return plugIn_->firstView(); }
    QWidget* lastView() { return plugIn_->lastView(); }
    /// With the dialog open: activates the plug-in, and asks its fixed questions. False, with `error`, where
    /// it wants what none of our hosts has; it has been cancelled then.
    bool activate(QString& error);

    /// The user wants to export.
    void requestExport() { plugIn_->exportManagerShouldBeginExport(); }
    /// Where the plug-in wants its files.
    const QString& exportFolder() const { return answers_.destinationPath; }
    /// The plug-in has asked for it: offers the images, as many as it was made for, on a thread of their own.
    /// The record is looked at from now on.
    void beginImages(std::vector<ExportedImage> images);
    /// All have been offered.
    void finishImages();

    /// At any time. No image callback begins any more, and the plug-in is told to cancel.
    void cancel();
    /// The export is over: no image callback begins any more, nor does the record count.
    void end();
    /// An image callback is still running; the end need not wait longer for one that takes too long.
    bool isAtImages() const;
    /// Last of all.
    void deactivate() { plugIn_->willBeDeactivated(); }

    /// While the export runs: looks whether the record has changed. It is looked at regularly
    /// anyway.
    void lookAtProgress();

private:
    HostedPlugIn(std::shared_ptr<APIManager> apiManager,
                 std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn, std::weak_ptr<ExportClient> client);

    const std::shared_ptr<APIManager> apiManager_;
    const std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn_;
    const std::weak_ptr<ExportClient> client_;
    FixedAnswers answers_;
    std::shared_ptr<ProgressWatch> progressWatch_;
    std::unique_ptr<ExportThread> exportThread_;
    QTimer lookTimer_;
    std::chrono::steady_clock::time_point ended_;
};

} // namespace host
