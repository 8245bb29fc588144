#pragma once

#include "host/core/PhotographFile.h"
#include "hostapi/ApertureExportPlugIn.h"
#include "platform/Thread.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace host {

/// One image of an export.
struct ExportedImage {
    QByteArray path; ///< Of the file, as the system keeps it.
    QString name;    ///< Under which it is offered to the plug-in.
    std::optional<QString> project;
    PhotographTrace trace{}; ///< What is there must not be another one.
};

/// Is told how the images go. Main thread.
class ExportThreadClient {
public:
    virtual ~ExportThreadClient() = default;
    /// When the photograph that is offered next was taken, by its file.
    virtual void imageCaptured(std::uint32_t index, const QDateTime& time) = 0;
    /// The file could not be rendered, or shows another photograph now, or the plug-in did not want it:
    /// it was not offered.
    virtual void imageNotOffered(std::uint32_t index, const QString& reason) = 0;
    /// The plug-in wanted the image written, and it was.
    virtual void imageWritten(std::uint32_t index, const QString& path) = 0;
    /// The last callback has returned; `all` images were gone through, or the thread was stopped.
    virtual void imagesEnded(bool all) = 0;
};

/// Renders one image after the other and offers each to the plug-in, on a thread of its own.
///
/// An image that can't be rendered does not keep the next one from its turn. Main thread, but for the body.
class ExportThread {
public:
    /// Starts at once. What the plug-in wants written goes to `folder`. The thread keeps the plug-in alive,
    /// and does without a client that has been destroyed. `callbackReturned` is called on the thread, each
    /// time the plug-in has returned from a callback.
    ExportThread(std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn, std::vector<ExportedImage> images,
                 QString folder, std::weak_ptr<ExportThreadClient> client,
                 std::function<void()> callbackReturned);
    ~ExportThread();
    ExportThread(const ExportThread&) = delete;
    ExportThread& operator=(const ExportThread&) = delete;

    /// No callback begins any more. Returns at once: one may still be running.
    void stop();
    bool isRunning() const;
    /// Whether a thread of any export still runs: who has stopped one may not have waited for it.
    static bool isAnyRunning();

private:
    class Body;
    std::shared_ptr<Body> body_;
    std::shared_ptr<platform::Thread> thread_;
};

} // namespace host
