#include "plugin/Quillmark.h"

#include "platform/RunLoop.h"
#include "platform/TemporaryFolder.h"
#include "plugin/DefaultsKeys.h"
#include "plugin/TextFormat.h"

#include <QtCore/QFile>
#include <QtCore/QSignalBlocker>

#include <filesystem>
#include <system_error>

namespace {

const QString kTemporaryFolderFormat = QStringLiteral("%@/Quillmark/");
const QString kPreparationFormat = QStringLiteral("Step 1 of 3: Preparing Image %1 of %2...");
const QString kDirectoriesMessage = QStringLiteral("Step 2 of 3: Preparing remote directories...");

const QString kNoExportManager = QStringLiteral("The application has no export manager.");
const QString kNoColorProfile =
    QStringLiteral("The colour profile ProPhotoRGB.icc is missing from %@, or unreadable.");

constexpr double kInitialImageQuality = 1.0;

std::shared_ptr<Quillmark> constructionFailed(QString* error, const QString& reason) {
    if (error)
        *error = reason;
    return nullptr;
}

/// Deletes what `folder` holds. A link is deleted itself, never what it leads to.
void emptyFolder(const std::filesystem::path& folder) {
    std::error_code ignored;
    std::vector<std::filesystem::path> entries;
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry(folder, ignored); !ignored && entry != end;
         entry.increment(ignored))
        entries.push_back(entry->path());
    for (const auto& entry : entries)
        std::filesystem::remove_all(entry, ignored);
}

} // namespace

std::shared_ptr<Quillmark> Quillmark::initWithAPIManager(hostapi::PROAPIObject* apiManager,
                                                         const QString& bundlePath, QString* error) {
    auto exportManager =
        apiManager ? hostapi::apiForProtocol<hostapi::ApertureExportManager>(*apiManager) : nullptr;
    if (!exportManager)
        return constructionFailed(error, kNoExportManager);
    auto environment = Environment::make(*apiManager, bundlePath, error);
    if (!environment)
        return nullptr;

    // Widgets and timers end with the object, and they belong to the main thread.
    const auto deleteOnMainThread = [mainLoop = platform::RunLoop::main()](Quillmark* object) {
        if (mainLoop->isCurrent())
            delete object;
        else
            mainLoop->post([object] { delete object; });
    };
    const std::shared_ptr<Quillmark> plugIn(new Quillmark(std::move(environment)), deleteOnMainThread);
    plugIn->_apiManager = apiManager;
    plugIn->_exportManager = std::move(exportManager);
    plugIn->colorspaceList = plugIn->initColorspaceList();
    if (!plugIn->colorspaceList)
        return constructionFailed(error,
                                  formattedText(kNoColorProfile, {plugIn->mainBundle->resourcesPath()}));
    plugIn->prepareTemporaryFolder();
    return plugIn;
}

Quillmark::Quillmark(std::shared_ptr<const Environment> surroundings)
    : environment(std::move(surroundings)) {
    mainBundle = &environment->bundle;
    _progressLock = std::make_unique<std::mutex>();
    eventList_.set(std::make_shared<RecordList>());
    categoryList_.set(std::make_shared<RecordList>());
    pricingList_.set(std::make_shared<RecordList>());
    loginDetails.set(std::make_shared<Record>());
    hideEventControls_ = true;
    hidePricingControls_ = true;
    imageQuality = kInitialImageQuality;
    tempDirectoryPath = formattedText(kTemporaryFolderFormat, {platform::temporaryFolder()});
}

Quillmark::~Quillmark() {
    // What a host has put into a window of its own ends with that window.
    for (const auto& object : _topLevelNibObjects) {
        if (object && !object->parent())
            object->deleteLater();
    }
    // A control of the window may be what let go of the object: it is still being told.
    if (progressWindow)
        progressWindow->deleteLater();
}

void Quillmark::prepareTemporaryFolder() {
    std::filesystem::path folder(QFile::encodeName(tempDirectoryPath.chopped(1)).toStdString());
    std::error_code ignored;
    // A link to a folder is no folder here: what it leads to is not the plug-in's to empty.
    if (std::filesystem::is_directory(std::filesystem::symlink_status(folder, ignored))) {
        emptyFolder(folder);
        return;
    }
    std::filesystem::remove(folder, ignored);
    std::filesystem::create_directories(folder, ignored);
}

void Quillmark::lockProgress() {
    if (!_progressLock)
        _progressLock = std::make_unique<std::mutex>();
    _progressLock->lock();
}

void Quillmark::unlockProgress() {
    _progressLock->unlock();
}

QString Quillmark::preparationMessage(std::size_t current, std::size_t total) {
    return kPreparationFormat.arg(current).arg(total);
}

void Quillmark::willBeActivated() {
    if (rememberCheckBox) {
        // Showing what is stored is no choice of the user's, to be stored again.
        const QSignalBlocker silence(rememberCheckBox);
        rememberCheckBox->setChecked(environment->defaults.value(defaults_keys::kRememberDetails).toBool());
    }
    authenticateWithSavedData();
}

void Quillmark::exportManagerShouldBeginExport() {
    if (!validateSettings())
        return;
    environment->defaults.setValue(defaults_keys::kImageQuality, imageQuality.load());
    environment->defaults.setValue(defaults_keys::kImageQualityPresent, true);

    // Asked for before the lock is taken: the host may want the lock to answer.
    const std::size_t imageCount = _exportManager->imageCount();
    changeProgress([&](hostapi::ExportProgress& progress) {
        progress.totalValue = imageCount;
        progress.currentValue = 1;
        progress.indeterminateProgress = false;
        progress.message = preparationMessage(progress.currentValue, progress.totalValue);
    });
    showProgressBar();
    totalBytes = 0;
    _exportManager->shouldBeginExport();
}

void Quillmark::exportManagerWillBeginExportToPath(const QString& path) {
    _exportPath = path;
}

void Quillmark::exportManagerDidFinishExport() {
    changeProgress([this](hostapi::ExportProgress& progress) {
        progress.totalValue = ftpPaths ? ftpPaths->size() : 0;
        progress.currentValue = 1;
        progress.indeterminateProgress = false;
        progress.message = kDirectoriesMessage;
    });
    _createFTPPathsIfNeeded();
}

void Quillmark::exportManagerShouldCancelExport() {
    setShouldCancelFTPActivity(true);
    setShouldCancelExport(true);
    // A running worker sees the flag when its request returns, and finishes the cancel itself.
    if (!threadLaunched())
        cleanupPriorCancel();
}

void Quillmark::cleanupPriorCancel() {
    // The timer that ends here may hold the last reference.
    const auto self = shared_from_this();
    closeProgressBar();
    setEventList(nullptr);
    setCategoryList(nullptr);
    setPricingList(nullptr);
    loginDetails.set(nullptr);
    _exportManager->shouldCancelExport();
}

void Quillmark::setEventList(std::shared_ptr<RecordList> list) {
    eventList_.set(std::move(list));
    Q_EMIT eventListChanged();
}

void Quillmark::setPricingList(std::shared_ptr<RecordList> list) {
    pricingList_.set(std::move(list));
    Q_EMIT pricingListChanged();
}

void Quillmark::setCategoryList(std::shared_ptr<RecordList> list) {
    categoryList_.set(std::move(list));
    Q_EMIT categoryListChanged();
}

void Quillmark::setChosenCategory(std::optional<QString> category) {
    chosenCategory_.set(std::move(category));
    Q_EMIT chosenCategoryChanged();
}

void Quillmark::setChosenEventId(std::optional<QString> id) {
    chosenEventId_.set(std::move(id));
    Q_EMIT chosenEventIdChanged();
}

void Quillmark::setChosenPricingId(std::optional<QString> id) {
    chosenPricingId_.set(std::move(id));
    Q_EMIT chosenPricingIdChanged();
}

void Quillmark::setHideEventControls(bool hide) {
    hideEventControls_ = hide;
    Q_EMIT hideEventControlsChanged();
}

void Quillmark::setHidePricingControls(bool hide) {
    hidePricingControls_ = hide;
    Q_EMIT hidePricingControlsChanged();
}
