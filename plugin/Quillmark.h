#pragma once

#include "hostapi/ApertureExportManager.h"
#include "hostapi/ApertureExportPlugIn.h"
#include "platform/ColorSpace.h"
#include "platform/FTPWriteStream.h"
#include "platform/Thread.h"
#include "plugin/AtomicProperty.h"
#include "plugin/Environment.h"
#include "service/Records.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QStringList>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QGroupBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QSlider>
#include <QtWidgets/QWidget>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

struct DirectoryCreationInfo;
struct FileUploadInfo;

using ColorSpaceList = std::vector<std::shared_ptr<const platform::ColorSpace>>;

/// The plug-in's principal object: it holds all state of an export dialog and of the export that the
/// user starts from it.
///
/// Every operation is a method of this one class; each file that implements some of them is named above
/// its group. Operations run on the main thread where nothing else is said. Workers, timers and
/// streams keep the object alive while they refer to it; whoever drops the last reference, the
/// object is deleted on the main thread.
class Quillmark final : public QObject,
                        public hostapi::ApertureExportPlugIn,
                        public std::enable_shared_from_this<Quillmark> {
    Q_OBJECT

public:
    /// The top of the quality's scale, which counts in twelfths.
    static constexpr double kBestImageQuality = 12.0;

    // --- plugin/Quillmark.cpp: construction, host protocol, cancellation ---

    /// Makes the object; empty where the host has no export manager, the service configuration can't be
    /// read or the colour profile is missing from the bundle, and then `error`, unless null, tells why.
    static std::shared_ptr<Quillmark> initWithAPIManager(hostapi::PROAPIObject* apiManager,
                                                         const QString& bundlePath, QString* error);
    ~Quillmark() override;

    bool allowsOnlyPlugInPresets() override { return true; }
    bool allowsMasterExport() override { return false; }
    bool allowsVersionExport() override { return true; }
    bool wantsFileNamingControls() override { return false; }
    bool wantsDestinationPathPrompt() override { return false; }
    QString destinationPath() override { return tempDirectoryPath; }
    std::optional<QString> defaultDirectory() override { return std::nullopt; }
    QWidget* firstView() override { return firstView_; }
    QWidget* lastView() override { return lastView_; }
    bool exportManagerShouldExportImageAtIndex(std::uint32_t) override { return true; }
    void exportManagerExportTypeDidChange() override {}
    void willBeDeactivated() override {}
    void exportManagerWillExportImageAtIndex(std::uint32_t) override {}
    void exportManagerDidWriteImageDataToRelativePath(const QString&, std::uint32_t) override {}
    hostapi::ExportProgress* progress() override { return &exportProgress; }
    void lockProgress() override;
    void unlockProgress() override;

    void willBeActivated() override;
    void exportManagerShouldBeginExport() override;
    void exportManagerWillBeginExportToPath(const QString& path) override;
    void exportManagerDidFinishExport() override;
    /// Any thread.
    void exportManagerShouldCancelExport() override;
    /// Any thread.
    void cleanupPriorCancel();

    // --- plugin/ImagePreparation.cpp: on the host's export thread ---

    bool exportManagerShouldWriteImageData(const QByteArray& imageData, const QString& relativePath,
                                           std::uint32_t index) override;
    /// Empty where the bundle has no usable "ProPhotoRGB" profile.
    std::shared_ptr<ColorSpaceList> initColorspaceList();
    void changeColorspace(QObject* sender);
    std::optional<QString> fileSystemStringOfPath(const QUrl& fileURL);
    std::uint64_t sizeOfFileAtPath(const QUrl& fileURL);

    // --- plugin/SettingsView.cpp ---

    QWidget* settingsView() override;
    void pressButton(QObject* sender);
    void resizeButtonClicked(QObject* sender);
    void updateResizeGUI(bool resize);
    void sliderChanged(QObject* sender);
    bool validateSettings();
    void displayValidationAlertWithMessage(const QString& message, const QString& infoText);
    void doAfterFailedValidation() {}

    // --- service/Login.cpp ---

    void authenticate();
    void loginThread();
    void doneLogin(const std::shared_ptr<Record>& result);
    void logOut();
    void authenticateWithSavedData();

    // --- service/Credentials.cpp ---

    void storePasswordInKeyChain(const Record& details);
    /// Any thread.
    std::optional<QString> getPasswordfromKeyChain(const QString& userName);
    void unsetSavedCredentials();
    void changeRememberState(QObject* sender);
    /// The attributes under which the password of `userName` is kept.
    hostapi::InternetPassword keychainAttributes(const QString& userName) const;

    // --- service/Lists.cpp ---

    void loadEventThread();
    void doneEventLoad();
    void changeEvent(QObject* sender);
    void changePricing(QObject* sender);
    void disableEventPricingBoxShowWaiting() {}

    // --- service/Finishing.cpp ---

    void _startFinishThread();
    void finishingThread();
    void doneFinishing(const std::optional<QString>& result);

    // --- ftp/DirectoryCreation.cpp: on the thread of the stage ---

    using CompletionMethod = void (Quillmark::*)();

    void _createFTPPathsIfNeeded();
    void createPath(const QString& path, CompletionMethod callback);
    void _endDirectoryCreationWithFailure(DirectoryCreationInfo* info);
    void createdFTPDirectory();
    void createdCategoryDirectory() {}

    // --- ftp/UploadQueue.cpp: on the thread of the queue ---

    void _uploadNextImage();
    void _finishCurrentUploadWithSuccess(bool success, FileUploadInfo* fileUploadInfo);

    // --- ftp/ProgressWindow.cpp ---

    void showProgressBar();
    /// Any thread: stops the timer, then closes the window, on the main thread, and waits.
    void closeProgressBar();
    void updateTimer();
    void _incrementUploadProgress(std::int32_t byteCount);
    void cancelDuringUpload(QObject* sender);

    // --- ftp/FTPStreams.cpp: any thread ---

    // The protocol's name, though the language keeps it for itself: no library that is used here has it.
    // NOLINTNEXTLINE(bugprone-reserved-identifier)
    std::optional<QString> _URLStringForServer(const std::optional<QString>& host,
                                               const std::optional<QString>& path,
                                               const std::optional<QString>& port) const;
    QString _errorTextForDomain(std::int64_t domain, std::int32_t error) const;
    static bool shouldCancelFTPActivity();
    static void setShouldCancelFTPActivity(bool cancel);

    // --- Properties: any thread; a setter notifies with the signal of its name ---

    std::shared_ptr<RecordList> eventList() const { return eventList_.get(); }
    void setEventList(std::shared_ptr<RecordList> list);
    std::optional<QString> chosenEvent() const { return chosenEvent_.get(); }
    void setChosenEvent(std::optional<QString> event) { chosenEvent_.set(std::move(event)); }
    std::shared_ptr<RecordList> pricingList() const { return pricingList_.get(); }
    void setPricingList(std::shared_ptr<RecordList> list);
    std::shared_ptr<RecordList> categoryList() const { return categoryList_.get(); }
    void setCategoryList(std::shared_ptr<RecordList> list);
    std::optional<QString> chosenCategory() const { return chosenCategory_.get(); }
    void setChosenCategory(std::optional<QString> category);
    std::optional<QString> chosenEventId() const { return chosenEventId_.get(); }
    void setChosenEventId(std::optional<QString> id);
    std::optional<QString> chosenPricingId() const { return chosenPricingId_.get(); }
    void setChosenPricingId(std::optional<QString> id);
    bool threadLaunched() const { return threadLaunched_; }
    void setThreadLaunched(bool launched) { threadLaunched_ = launched; }
    bool shouldCancelExport() const { return shouldCancelExport_; }
    void setShouldCancelExport(bool cancel) { shouldCancelExport_ = cancel; }
    bool doResizeImages() const { return doResizeImages_; }
    void setDoResizeImages(bool resize) { doResizeImages_ = resize; }
    bool autoCreateCategories() const { return autoCreateCategories_; }
    void setAutoCreateCategories(bool autoCreate) { autoCreateCategories_ = autoCreate; }
    bool hidePricingControls() const { return hidePricingControls_; }
    void setHidePricingControls(bool hide);
    bool hideEventControls() const { return hideEventControls_; }
    void setHideEventControls(bool hide);

Q_SIGNALS:
    void eventListChanged();
    void pricingListChanged();
    void categoryListChanged();
    void chosenCategoryChanged();
    void chosenEventIdChanged();
    void chosenPricingIdChanged();
    void hideEventControlsChanged();
    void hidePricingControlsChanged();

public:
    // --- The fields, in their order. What two threads share is atomic or guarded. ---

    hostapi::PROAPIObject* _apiManager = nullptr;
    std::shared_ptr<hostapi::ApertureExportManager> _exportManager;
    std::unique_ptr<std::mutex> _progressLock;
    std::vector<QPointer<QObject>> _topLevelNibObjects;
    hostapi::ExportProgress exportProgress;
    QPointer<QWidget> settingsView_;
    QPointer<QWidget> progressView;
    QPointer<QWidget> firstView_;
    QPointer<QWidget> lastView_;
    QPointer<QWidget> progressWindow;
    const platform::Bundle* mainBundle = nullptr;
    QPointer<QTimer> progressBarTimer;
    std::optional<QString> _username;
    std::optional<QString> _password;
    std::shared_ptr<QStringList> exportedImagePaths;
    QString tempDirectoryPath;
    QHash<QString, QStringList> remoteDirectoryContents;
    AtomicProperty<std::shared_ptr<Record>> loginDetails;
    AtomicProperty<std::shared_ptr<RecordList>> eventList_;
    AtomicProperty<std::shared_ptr<RecordList>> categoryList_;
    AtomicProperty<std::shared_ptr<RecordList>> pricingList_;
    std::shared_ptr<ColorSpaceList> colorspaceList;
    std::atomic<const platform::ColorSpace*> selectedColorspace{nullptr};
    AtomicProperty<std::optional<QString>> chosenEvent_;
    AtomicProperty<std::optional<QString>> chosenCategory_;
    std::optional<QString> currentCategoryFolder;
    std::shared_ptr<QStringList> exportFTPFolders;
    QPointer<QProgressBar> progressBar;
    QPointer<QLabel> progressMessage;
    std::shared_ptr<std::deque<std::optional<QString>>> ftpPaths;
    AtomicProperty<std::optional<QString>> chosenEventId_;
    AtomicProperty<std::optional<QString>> chosenPricingId_;
    QPointer<QLineEdit> usernameField;
    QPointer<QLabel> loggedInStatusLabel;
    QPointer<QLineEdit> passwordField;
    QPointer<QProgressBar> loginProgress;
    QPointer<QPushButton> loginButton;
    QPointer<QCheckBox> rememberCheckBox;
    QPointer<QGroupBox> eventBox;
    QPointer<QGroupBox> settingsBox;
    QPointer<QGroupBox> pricingBox;
    QPointer<QComboBox> eventChooser;
    QPointer<QComboBox> pricingChooser;
    QPointer<QComboBox> categoryChooser;
    QPointer<QComboBox> colorspaceChooser;
    QPointer<QCheckBox> doResizeButton;
    QPointer<QLineEdit> resizeWidth;
    QPointer<QLineEdit> resizeHeight;
    QPointer<QLabel> validationMessage;
    QPointer<QSlider> qualitySlider;
    QPointer<QLabel> qualityValueField;
    std::atomic<double> imageQuality{0};
    std::atomic<bool> hideEventControls_{false};
    std::atomic<bool> hidePricingControls_{false};
    std::atomic<bool> autoCreateCategories_{false};
    bool isLoggedIn = false;
    std::atomic<bool> doResizeImages_{false};
    bool hiResUploads = false;
    std::atomic<bool> shouldCancelExport_{false};
    QPointer<QProgressBar> eventLoadingProgress;
    QPointer<QProgressBar> pricingLoadingProgress;
    std::uint64_t totalBytes = 0;
    QString _exportPath;
    std::optional<std::chrono::steady_clock::time_point> uploadStartTime;
    std::int32_t maxWidthValue = 0;
    std::int32_t maxHeightValue = 0;
    std::int32_t numUploaded = 0;
    std::atomic<bool> threadLaunched_{false};
    std::shared_ptr<platform::Thread> finishThreadRef;
    std::shared_ptr<platform::Thread> loginThreadRef;
    std::shared_ptr<platform::Thread> eventThreadRef;

    /// Bundle, configuration, and whom the object speaks to.
    const std::shared_ptr<const Environment> environment;

private:
    explicit Quillmark(std::shared_ptr<const Environment> environment);
    /// Empties the folder at `tempDirectoryPath`, or makes it.
    void prepareTemporaryFolder();
    /// Fills the record under the progress lock.
    template <typename Change>
    void changeProgress(Change&& change) {
        lockProgress();
        change(exportProgress);
        unlockProgress();
    }
    /// What the progress record says while images are prepared.
    static QString preparationMessage(std::size_t current, std::size_t total);

    /// Loads the settings view; without effect where its interface file can't be loaded.
    void loadSettingsView();

    // plugin/SettingsWiring.cpp: outlets, actions and properties of the view.
    void connectOutlets(QWidget& view);
    void connectActions();
    void connectChoosers();
    void connectListChooser(QComboBox* chooser, void (Quillmark::*changed)(),
                            std::shared_ptr<RecordList> (Quillmark::*list)() const);
    void connectCategoryText();
    void connectColorspaceChooser();
    void connectVisibility(QWidget& view);
};
