#pragma once

#include "hostapi/ApertureExportManager.h"
#include "hostapi/ApertureExportPlugIn.h"
#include "hostapi/PlugInModule.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QPluginLoader>
#include <QtCore/QTimer>
#include <QtWidgets/QDialog>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QVBoxLayout>

#include <functional>
#include <memory>
#include <vector>

/// A picture as the application has rendered it: encoded, upright, in its own colour space.
struct Picture {
    QByteArray data;
    QString fileName;
    QString project;
};

/// What the plug-in asks and tells about one export. It may tell from any thread, and the application must
/// not act inside the call: each call is handed on to the main thread.
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
    void shouldBeginExport() override { handOn(&ExportManager::begin); }
    void shouldCancelExport() override { handOn(&ExportManager::cancel); }
    void shouldFinishExport() override { handOn(&ExportManager::finish); }

    const std::vector<Picture> pictures;
    std::function<void()> begin, cancel, finish; // Main thread; empty once the dialog is gone.

private:
    void handOn(std::function<void()> ExportManager::*act) {
        const auto onMainThread = [this, act] {
            if (this->*act)
                (this->*act)();
        };
        QMetaObject::invokeMethod(this, onMainThread, Qt::QueuedConnection);
    }
};

/// Hands out the export manager of a dialog. A plug-in object may outlive its dialog, but not this.
class APIManager final : public hostapi::PROAPIObject {
public:
    std::shared_ptr<PROAPIObject> apiForProtocol(QLatin1String protocol) override {
        return protocol == hostapi::ApertureExportManager::kProtocol ? exportManager : nullptr;
    }
    std::shared_ptr<ExportManager> exportManager;
};

/// Exports pictures through a plug-in: its panel, a line of progress, and two buttons. Make a fresh one for
/// each export.
class ExportDialog final : public QDialog {
public:
    explicit ExportDialog(std::vector<Picture> pictures)
        : manager_(std::make_shared<ExportManager>(std::move(pictures))) {
        manager_->begin = [this] { beginExport(); };
        manager_->cancel = [this] { end(Rejected); };
        manager_->finish = [this] { end(Accepted); };
        setWindowTitle(QStringLiteral("Export"));
    }
    // What is still under way may outlive the dialog; it must not reach back into it.
    ~ExportDialog() override { manager_->begin = manager_->cancel = manager_->finish = nullptr; }

    /// Makes the plug-in and shows its panel. False, with a reason for the user, where that is impossible.
    bool loadPlugIn(APIManager& apiManager, const QString& bundlePath, QString* error) {
        QPluginLoader loader(QDir(bundlePath).absoluteFilePath(hostapi::kModuleFileName));
        auto* const module = qobject_cast<hostapi::PlugInModule*>(loader.instance());
        if (!module) {
            *error = bundlePath + QStringLiteral(": ") + loader.errorString();
            return false;
        }
        apiManager.exportManager = manager_;
        plugIn_ = module->initWithAPIManager(&apiManager, QDir(bundlePath).absolutePath(), error);
        QWidget* const panel = plugIn_ ? plugIn_->settingsView() : nullptr;
        if (plugIn_ && !panel)
            *error = QStringLiteral("The plug-in's panel could not be loaded.");
        if (!panel)
            return false;
        layOut(panel);
        plugIn_->willBeActivated();
        return true;
    }

    /// The user gives up. An export under way is over when the plug-in says so.
    void reject() override {
        if (plugIn_)
            plugIn_->exportManagerShouldCancelExport();
        if (!isExporting_)
            end(Rejected);
    }

    QPushButton* const exportButton = new QPushButton(QStringLiteral("E&xport"));

private:
    void layOut(QWidget* panel) {
        auto* const buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
        buttons->addButton(exportButton, QDialogButtonBox::ActionRole);
        auto* const layout = new QVBoxLayout(this);
        layout->addWidget(panel);
        layout->addWidget(progress_);
        layout->addWidget(buttons);
        setTabOrder(plugIn_->lastView(), exportButton);
        plugIn_->firstView()->setFocus();
        connect(exportButton, &QPushButton::clicked, this,
                [this] { plugIn_->exportManagerShouldBeginExport(); });
        connect(buttons, &QDialogButtonBox::rejected, this, &ExportDialog::reject);
        connect(&refresh_, &QTimer::timeout, this, [this] { showProgress(); });
    }

    /// The plug-in has accepted the settings.
    void beginExport() {
        isExporting_ = true;
        exportButton->setEnabled(false);
        refresh_.start(250);
        plugIn_->exportManagerWillBeginExportToPath(plugIn_->destinationPath());
        exportFrom(0);
    }

    /// Offers one picture, and the next one later: in between the user may cancel. An application that
    /// renders its pictures does that on an export thread.
    void exportFrom(std::uint32_t index) {
        if (hasEnded_)
            return;
        if (index == manager_->imageCount()) {
            // Not the end: the plug-in uploads now, and tells when it is done.
            plugIn_->exportManagerDidFinishExport();
            return;
        }
        const Picture& picture = manager_->pictures[index];
        if (plugIn_->exportManagerShouldExportImageAtIndex(index)) {
            plugIn_->exportManagerWillExportImageAtIndex(index);
            if (plugIn_->exportManagerShouldWriteImageData(picture.data, picture.fileName, index))
                write(picture);
            plugIn_->exportManagerDidWriteImageDataToRelativePath(picture.fileName, index);
        }
        QTimer::singleShot(0, this, [this, index] { exportFrom(index + 1); });
    }

    void write(const Picture& picture) {
        QFile file(QDir(plugIn_->destinationPath()).filePath(picture.fileName));
        if (file.open(QIODevice::WriteOnly))
            file.write(picture.data);
    }

    void showProgress() {
        plugIn_->lockProgress();
        const QString message = plugIn_->progress()->message;
        plugIn_->unlockProgress();
        progress_->setText(message);
    }

    void end(int result) {
        // Told more than once, or to finish after a cancel: the first word counts.
        if (hasEnded_)
            return;
        hasEnded_ = true;
        refresh_.stop();
        if (plugIn_)
            plugIn_->willBeDeactivated();
        done(result);
    }

    const std::shared_ptr<ExportManager> manager_;
    std::shared_ptr<hostapi::ApertureExportPlugIn> plugIn_;
    QLabel* const progress_ = new QLabel;
    QTimer refresh_;
    bool isExporting_ = false;
    bool hasEnded_ = false;
};
