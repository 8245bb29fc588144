// A plug-in that does what a test tells it in the environment variable FAKE_PLUG_IN, a list of words, and
// writes what it was told into the file named by FAKE_PLUG_IN_LOG, one line each. Without words everything
// goes well.
//
//   unmakable       can't be made
//   masters-only    takes no rendered images
//   wants-folder    wants its user to be asked for a folder
//   wants-names     wants its user to name the files
//   remembered      logs in by itself when it is activated, if its defaults hold a name
//   login-fails, login-hangs, lists-fail, lists-hang
//   no-own-box      the account allows no resize box
//   refuses         shows a sheet instead of beginning
//   cancels, cancels-then-finishes
//   leaves-out=N    image N; may stand more than once
//   wants-files     has the host write the images
//   slow-images     takes a second for each image
//   unwritable=N    image N can't be written, and is neither prepared nor left out; the upload ends at it
//   with a
//                   critical alert and a cancel that leaves the windows as they are
//   alerts          shows a critical alert instead of uploading, and says nothing more
//   alerts-twice    shows another one before that
//   folders-break, unanswered, hangs
//   upload-breaks[=N]  where N files are uploaded, or none
//   dies=STAGE      kills its process: at image 1 "in-images", "in-folders", "in-upload" where one file is
//                   uploaded, "after-deletion" of the second before it is told, "in-finishing"
//   ignores-cancel

#include "hostapi/ApertureExportManager.h"
#include "hostapi/HostServices.h"
#include "hostapi/PlugInModule.h"
#include "tests/host/fake/FakePanel.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <atomic>
#include <csignal>
#include <mutex>

namespace fake {

namespace {

constexpr QLatin1String kRememberedName{"quillmarkUsername"};

QStringList script() {
    return qEnvironmentVariable("FAKE_PLUG_IN").split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

void log(const QString& line) {
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    QFile file(qEnvironmentVariable("FAKE_PLUG_IN_LOG"));
    if (file.open(QIODevice::Append))
        file.write(line.toUtf8() + '\n');
}

} // namespace

class PlugIn final : public QObject, public hostapi::ApertureExportPlugIn {
public:
    explicit PlugIn(hostapi::PROAPIObject& apiManager)
        : script_(script())
        , manager_(hostapi::apiForProtocol<hostapi::ApertureExportManager>(apiManager))
        , services_(hostapi::apiForProtocol<hostapi::HostServices>(apiManager)) {
        QDir(folder_).removeRecursively();
        QDir().mkpath(folder_);
        log(QStringLiteral("temporary ") + QDir::tempPath());
    }

    ~PlugIn() override { log(QStringLiteral("destroyed")); }

    bool allowsOnlyPlugInPresets() override { return answered("allowsOnlyPlugInPresets", true); }
    bool allowsMasterExport() override { return answered("allowsMasterExport", false); }
    bool allowsVersionExport() override { return answered("allowsVersionExport", !has("masters-only")); }
    bool wantsFileNamingControls() override {
        return answered("wantsFileNamingControls", has("wants-names"));
    }
    bool wantsDestinationPathPrompt() override {
        return answered("wantsDestinationPathPrompt", has("wants-folder"));
    }
    QString destinationPath() override { return answered("destinationPath", folder_); }
    std::optional<QString> defaultDirectory() override {
        return answered("defaultDirectory", std::optional<QString>());
    }
    QWidget* firstView() override { return answered("firstView", panel_->usernameField); }
    QWidget* lastView() override { return answered("lastView", panel_->qualitySlider); }
    void willBeDeactivated() override { log(QStringLiteral("willBeDeactivated")); }
    void exportManagerExportTypeDidChange() override {
        log(QStringLiteral("exportManagerExportTypeDidChange"));
    }

    QWidget* settingsView() override {
        log(QStringLiteral("settingsView"));
        if (!panel_) {
            panel_ = new Panel;
            connect(panel_->loginButton, &QPushButton::clicked, this, &PlugIn::logIn);
        }
        return panel_;
    }

    void willBeActivated() override {
        log(QStringLiteral("willBeActivated"));
        const QString name = services_->defaultsStore()->value(kRememberedName).toString();
        panel_->usernameField->setText(name);
        if (has("remembered") && !name.isEmpty())
            logIn();
    }

    void exportManagerShouldBeginExport() override {
        log(QStringLiteral("shouldBeginExport"));
        logChoices();
        if (has("refuses")) {
            services_->alertPresenter()->beginSheet({hostapi::AlertStyle::Warning,
                                                     QStringLiteral("Please select an event"),
                                                     QStringLiteral("Now.")},
                                                    panel_);
            return;
        }
        change(1, manager_->imageCount(), QStringLiteral("Step 1"));
        isExporting_ = true;
        manager_->shouldBeginExport();
    }
    void exportManagerWillBeginExportToPath(const QString& path) override {
        log(QStringLiteral("willBeginExportToPath ") + (path == folder_ ? QStringLiteral("its own") : path));
    }

    bool exportManagerShouldExportImageAtIndex(std::uint32_t index) override {
        logImage("shouldExport", index);
        return true;
    }
    void exportManagerWillExportImageAtIndex(std::uint32_t index) override { logImage("willExport", index); }
    bool exportManagerShouldWriteImageData(const QByteArray& imageData, const QString& relativePath,
                                           std::uint32_t index) override {
        const QVariant project =
            manager_->propertiesForImageAtIndex(index).value(hostapi::kExportKeyProjectName);
        logImage("shouldWrite", index,
                 relativePath + QLatin1Char(' ') + QString::number(imageData.size()) + QLatin1Char(' ') +
                     project.toString());
        if (index == 1)
            dieIn("in-images");
        if (has("slow-images"))
            QThread::sleep(1);
        if (has("wants-files"))
            return true;
        if (has("leaves-out=" + QByteArray::number(index))) {
            services_->observer()->imageLeftOut(index);
            return false;
        }
        if (has("unwritable=" + QByteArray::number(index))) {
            prepared_.append(folder_ + relativePath.section(QLatin1Char('.'), 0, -2) +
                             QStringLiteral(".jpg"));
            return false;
        }
        QFile file(folder_ + relativePath.section(QLatin1Char('.'), 0, -2) + QStringLiteral(".jpg"));
        if (file.open(QIODevice::WriteOnly))
            prepared_.append(file.fileName());
        services_->observer()->imagePrepared(index, file.fileName());
        change(index + 2, manager_->imageCount(), QStringLiteral("Step 1"));
        return false;
    }
    void exportManagerDidWriteImageDataToRelativePath(const QString& relativePath,
                                                      std::uint32_t index) override {
        logImage("didWrite", index, relativePath);
    }

    void exportManagerDidFinishExport() override {
        log(QStringLiteral("didFinishExport"));
        if (has("hangs"))
            return;
        if (has("alerts-twice"))
            alert(hostapi::AlertStyle::Critical, QStringLiteral("It was so."));
        if (has("alerts") || has("alerts-twice"))
            return alert(hostapi::AlertStyle::Critical);
        if (has("folders-break"))
            return services_->observer()->folderChainEnded(false);
        dieIn("in-folders");
        services_->observer()->folderChainEnded(true);
        if (!upload())
            return services_->observer()->uploadEnded(false);
        services_->observer()->uploadEnded(true);
        // What was handed over is told to the host before it goes on.
        QTimer::singleShot(0, this, &PlugIn::finish);
    }

    void finish() {
        dieIn("in-finishing");
        if (has("unanswered"))
            return services_->observer()->finishingRequestUnanswered();
        if (has("cancels") || has("cancels-then-finishes"))
            manager_->shouldCancelExport();
        if (has("cancels"))
            return;
        alert(hostapi::AlertStyle::Informational);
        manager_->shouldFinishExport();
    }

    void exportManagerShouldCancelExport() override {
        log(QStringLiteral("shouldCancelExport"));
        if (!has("ignores-cancel"))
            manager_->shouldCancelExport();
    }

    hostapi::ExportProgress* progress() override {
        if (!isExporting_)
            log(QStringLiteral("progress without an export"));
        return &progress_;
    }
    void lockProgress() override { progressMutex_.lock(); }
    void unlockProgress() override { progressMutex_.unlock(); }

private:
    bool has(const QByteArray& word) const { return script_.contains(QString::fromLatin1(word)); }

    void dieIn(const char* stage) const {
        if (has(QByteArrayLiteral("dies=") + stage))
            raise(SIGKILL);
    }

    /// Ends with false where the script wants it to break off.
    bool upload() {
        for (qsizetype i = 0; i < prepared_.size(); ++i) {
            if ((has("upload-breaks") && i == 0) || has("upload-breaks=" + QByteArray::number(i)))
                return false;
            if (i == 1) {
                QCoreApplication::processEvents();
                dieIn("in-upload");
            }
            if (!QFileInfo::exists(prepared_[i])) {
                alert(
                    hostapi::AlertStyle::Critical,
                    QStringLiteral("There was an error reading %1.").arg(QFileInfo(prepared_[i]).fileName()));
                manager_->shouldCancelExport();
                return false;
            }
            log(QStringLiteral("upload ") + QFileInfo(prepared_[i]).fileName());
            QFile::remove(prepared_[i]);
            if (i == 1)
                dieIn("after-deletion");
            services_->observer()->imageUploaded(prepared_[i]);
        }
        return true;
    }

    template <typename Answer>
    static Answer answered(const char* question, Answer answer) {
        log(QLatin1String(question));
        return answer;
    }

    static void logImage(const char* call, std::uint32_t index, const QString& more = {}) {
        log(QStringLiteral("%1 %2 %3").arg(QLatin1String(call)).arg(index).arg(more).trimmed());
    }

    void alert(hostapi::AlertStyle style, const QString& message = QStringLiteral("It is so.")) {
        services_->alertPresenter()->runModal({style, message, QStringLiteral("Line\nby line.")});
    }

    void change(std::size_t current, std::size_t total, const QString& message) {
        lockProgress();
        progress_ = {current, total, message, false};
        unlockProgress();
    }

    void logIn() {
        panel_->loginButton->setEnabled(false);
        // Kept as a worker keeps them, which reads them later.
        account_ = panel_->usernameField->text();
        password_ = panel_->passwordField->text();
        if (!has("login-hangs"))
            QTimer::singleShot(0, this, &PlugIn::doneLogin);
    }

    void doneLogin() {
        log(QStringLiteral("login %1/%2/%3")
                .arg(account_, password_)
                .arg(panel_->rememberCheckBox->isChecked()));
        if (has("login-fails")) {
            panel_->loggedInStatusLabel->setText(QStringLiteral("Login failed!"));
            panel_->loginButton->setEnabled(true);
            return;
        }
        panel_->loggedInStatusLabel->setText(QStringLiteral("Logged in as Ann"));
        panel_->settingsBox->show();
        panel_->doResizeButton->setEnabled(!has("no-own-box"));
        if (has("lists-fail"))
            services_->observer()->listsCouldNotBeLoaded();
        else if (!has("lists-hang"))
            QTimer::singleShot(0, this, &PlugIn::doneLists);
    }

    void doneLists() {
        panel_->fillLists();
        panel_->loginButton->setEnabled(true);
    }

    void logChoices() {
        log(QStringLiteral("event %1").arg(panel_->eventChooser->currentText()));
        log(QStringLiteral("category %1/%2")
                .arg(panel_->categoryChooser->currentText())
                .arg(panel_->autoCreateCategoriesButton->isChecked()));
        log(QStringLiteral("pricing %1").arg(panel_->pricingChooser->currentText()));
        log(QStringLiteral("resize %1/%2/%3")
                .arg(panel_->doResizeButton->isChecked())
                .arg(panel_->resizeWidth->text(), panel_->resizeHeight->text()));
        log(QStringLiteral("quality %1").arg(panel_->qualitySlider->value()));
        log(QStringLiteral("colorspace %1").arg(panel_->colorspaceChooser->currentIndex()));
    }

    const QStringList script_;
    const std::shared_ptr<hostapi::ApertureExportManager> manager_;
    const std::shared_ptr<hostapi::HostServices> services_;
    const QString folder_ = QDir::tempPath() + QStringLiteral("/fake/");
    QPointer<Panel> panel_;
    QString account_;
    QString password_;
    QStringList prepared_;
    hostapi::ExportProgress progress_;
    std::mutex progressMutex_;
    std::atomic<bool> isExporting_{false};
};

class Module final : public QObject, public hostapi::PlugInModule {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID HOSTAPI_PLUGIN_MODULE_IID)
    Q_INTERFACES(hostapi::PlugInModule)

public:
    std::shared_ptr<hostapi::ApertureExportPlugIn>
    initWithAPIManager(hostapi::PROAPIObject* apiManager, const QString&, QString* error) override {
        if (script().contains(QStringLiteral("unmakable"))) {
            *error = QStringLiteral("it does not want to be made");
            return nullptr;
        }
        return std::make_shared<PlugIn>(*apiManager);
    }
};

} // namespace fake

#include "FakePlugIn.moc"
