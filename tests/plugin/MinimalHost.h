#pragma once

#include "hostapi/ApertureExportManager.h"
#include "hostapi/ApertureExportPlugIn.h"
#include "hostapi/PlugInModule.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QObject>
#include <QtCore/QPluginLoader>

#include <functional>
#include <memory>
#include <vector>

// An application that exports pictures through a plug-in: the least that a host needs. docs/hosting.md
// shows this file.

/// A picture as the application has rendered it: encoded, upright, in its own colour space.
struct Picture {
    QByteArray data;
    QString fileName;
    QString project;
};

/// What the plug-in asks and tells about one export. It may tell from any thread, and the host must not act
/// inside the call: each call is handed on to the main thread.
class ExportManager final : public QObject, public hostapi::ApertureExportManager {
public:
    explicit ExportManager(std::vector<Picture> toExport)
        : pictures(std::move(toExport)) {}

    std::shared_ptr<PROAPIObject> apiForProtocol(QLatin1String) override { return nullptr; }
    std::uint32_t imageCount() override { return static_cast<std::uint32_t>(pictures.size()); }
    QVariantMap propertiesForImageAtIndex(std::uint32_t index) override {
        if (index >= pictures.size())
            return {};
        return {{hostapi::kExportKeyProjectName, pictures[index].project}};
    }
    void shouldBeginExport() override { handOn(begin); }
    void shouldCancelExport() override { handOn(cancel); }
    void shouldFinishExport() override { handOn(finish); }

    const std::vector<Picture> pictures;
    std::function<void()> begin, cancel, finish; // Set before the plug-in is made.

private:
    void handOn(const std::function<void()>& act) {
        QMetaObject::invokeMethod(this, act, Qt::QueuedConnection);
    }
};

/// Hands out the export manager. It may also hand out hostapi::HostServices; this host leaves alerts,
/// passwords and defaults to the desktop.
class ApiManager final : public hostapi::PROAPIObject {
public:
    explicit ApiManager(std::shared_ptr<ExportManager> manager)
        : manager_(std::move(manager)) {}

    std::shared_ptr<PROAPIObject> apiForProtocol(QLatin1String protocol) override {
        return protocol == hostapi::ApertureExportManager::kProtocol ? manager_ : nullptr;
    }

private:
    const std::shared_ptr<ExportManager> manager_;
};

/// One export dialog. Make a fresh one for each; keep it until `ended` has been called.
class MinimalHost {
public:
    explicit MinimalHost(std::vector<Picture> pictures)
        : manager_(std::make_shared<ExportManager>(std::move(pictures)))
        , apiManager_(manager_) {
        manager_->begin = [this] { exportPictures(); };
        manager_->cancel = [this] { end(false); };
        manager_->finish = [this] { end(true); };
    }
    // What is still under way may outlive the dialog; it must not reach back into it.
    ~MinimalHost() {
        manager_->begin = manager_->cancel = manager_->finish = [] {};
    }

    /// Loads the module, which stays loaded, and makes the plug-in. False, with the reason, where it can't.
    bool loadPlugIn(const QString& bundlePath, QString* error) {
        QPluginLoader loader(QDir(bundlePath).absoluteFilePath(hostapi::kModuleFileName));
        auto* const module = qobject_cast<hostapi::PlugInModule*>(loader.instance());
        if (!module) {
            *error = loader.errorString();
            return false;
        }
        plugIn_ = module->initWithAPIManager(&apiManager_, QDir(bundlePath).absolutePath(), error);
        return plugIn_ != nullptr;
    }

    /// The panel, to be put into the export dialog; null where it can't be loaded.
    QWidget* openPanel() {
        QWidget* const panel = plugIn_->settingsView();
        plugIn_->willBeActivated();
        return panel;
    }

    /// The user presses the dialog's export button, or gives up.
    void exportPressed() { plugIn_->exportManagerShouldBeginExport(); }
    void cancelPressed() { plugIn_->exportManagerShouldCancelExport(); }

    hostapi::ApertureExportPlugIn& plugIn() { return *plugIn_; }
    /// Called with true for an export that finished, false for one that was cancelled.
    std::function<void(bool finished)> ended = [](bool) {};

private:
    /// The plug-in has accepted the settings. An application with more than a few pictures does this on an
    /// export thread that runs an event loop, and shows `progress` meanwhile.
    void exportPictures() {
        const QString folder = plugIn_->destinationPath();
        plugIn_->exportManagerWillBeginExportToPath(folder);
        for (std::uint32_t index = 0; index < manager_->imageCount(); ++index) {
            if (!plugIn_->exportManagerShouldExportImageAtIndex(index))
                continue;
            const Picture& picture = manager_->pictures[index];
            plugIn_->exportManagerWillExportImageAtIndex(index);
            if (plugIn_->exportManagerShouldWriteImageData(picture.data, picture.fileName, index))
                write(folder, picture);
            plugIn_->exportManagerDidWriteImageDataToRelativePath(picture.fileName, index);
        }
        // Not the end: the plug-in uploads now, and tells when it is done.
        plugIn_->exportManagerDidFinishExport();
    }

    static void write(const QString& folder, const Picture& picture) {
        QFile file(QDir(folder).filePath(picture.fileName));
        if (file.open(QIODevice::WriteOnly))
            file.write(picture.data);
    }

    void end(bool finished) {
        // Told more than once, or to finish after a cancel: the first word counts.
        if (hasEnded_)
            return;
        hasEnded_ = true;
        plugIn_->willBeDeactivated();
        ended(finished);
    }

    const std::shared_ptr<ExportManager> manager_;
    ApiManager apiManager_;
    std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn_;
    bool hasEnded_ = false;
};
