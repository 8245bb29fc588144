#include "host/core/ExportThread.h"

#include "host/core/ImageRenderer.h"
#include "platform/RunLoop.h"

#include <QtCore/QDir>
#include <QtCore/QSaveFile>

namespace host {

namespace {

std::atomic<int> runningThreads{0};

/// Held by each running thread.
class Running {
public:
    Running() { ++runningThreads; }
    ~Running() { --runningThreads; }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
};

} // namespace

/// What the thread works on; it lives as long as the thread does.
class ExportThread::Body {
public:
    Body(std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn, std::vector<ExportedImage> images,
         QString folder, std::weak_ptr<ExportThreadClient> client, std::function<void()> callbackReturned)
        : plugIn_(std::move(plugIn))
        , images_(std::move(images))
        , folder_(std::move(folder))
        , client_(std::move(client))
        , callbackReturned_(std::move(callbackReturned)) {}

    void run() {
        for (std::uint32_t index = 0; index < images_.size() && !stopped_; ++index)
            exportImage(index);
        tell([all = !stopped_](ExportThreadClient& client) { client.imagesEnded(all); });
    }

    void stop() { stopped_ = true; }

    /// There is no thread for it.
    void endUnbegun() {
        tell([](ExportThreadClient& client) { client.imagesEnded(false); });
    }

private:
    void exportImage(std::uint32_t index) {
        const ExportedImage& image = images_[index];
        const bool wanted = plugIn_->exportManagerShouldExportImageAtIndex(index);
        callbackReturned_();
        if (!wanted) {
            notOffered(index, QStringLiteral("the plug-in does not want it"));
            return;
        }
        if (!isStillThere(image.path, image.trace)) {
            notOffered(index, QStringLiteral("another photograph is found under its path now"));
            return;
        }
        QString error;
        const auto rendered = stopped_ ? std::nullopt : renderImage(image.path, error);
        if (stopped_)
            return;
        if (!rendered) {
            notOffered(index, error);
            return;
        }
        tellWhenItWasTaken(index, image.path);
        plugIn_->exportManagerWillExportImageAtIndex(index);
        callbackReturned_();
        if (!stopped_)
            offer(index, image.name, *rendered);
    }

    void tellWhenItWasTaken(std::uint32_t index, const QByteArray& path) {
        if (const QDateTime time = readCaptureTime(path); time.isValid())
            tell([index, time](ExportThreadClient& client) { client.imageCaptured(index, time); });
    }

    void offer(std::uint32_t index, const QString& name, const RenderedImage& rendered) {
        const bool shouldWrite = plugIn_->exportManagerShouldWriteImageData(rendered.data, name, index);
        callbackReturned_();
        if (shouldWrite && !write(index, name, rendered.data))
            return;
        if (stopped_)
            return;
        plugIn_->exportManagerDidWriteImageDataToRelativePath(name, index);
        callbackReturned_();
    }

    bool write(std::uint32_t index, const QString& name, const QByteArray& data) {
        const QString path = QDir(folder_).absoluteFilePath(name);
        QSaveFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
            notOffered(index, file.errorString());
            return false;
        }
        tell([index, path](ExportThreadClient& client) { client.imageWritten(index, path); });
        return true;
    }

    void notOffered(std::uint32_t index, const QString& reason) {
        tell([index, reason](ExportThreadClient& client) { client.imageNotOffered(index, reason); });
    }

    void tell(std::function<void(ExportThreadClient&)> what) {
        platform::RunLoop::main()->post([client = client_, what = std::move(what)] {
            if (const auto alive = client.lock())
                what(*alive);
        });
    }

    const std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn_;
    const std::vector<ExportedImage> images_;
    const QString folder_;
    const std::weak_ptr<ExportThreadClient> client_;
    const std::function<void()> callbackReturned_;
    std::atomic<bool> stopped_{false};
};

ExportThread::ExportThread(std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn,
                           std::vector<ExportedImage> images, QString folder,
                           std::weak_ptr<ExportThreadClient> client, std::function<void()> callbackReturned)
    : body_(std::make_shared<Body>(std::move(plugIn), std::move(images), std::move(folder), std::move(client),
                                   std::move(callbackReturned)))
    , thread_(platform::Thread::start(
          "export", [body = body_, running = std::make_shared<Running>()] { body->run(); })) {
    if (!thread_)
        body_->endUnbegun();
}

ExportThread::~ExportThread() {
    stop();
}

void ExportThread::stop() {
    body_->stop();
}

bool ExportThread::isRunning() const {
    return thread_ && thread_->isRunning();
}

bool ExportThread::isAnyRunning() {
    return runningThreads > 0;
}

} // namespace host
