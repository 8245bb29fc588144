#include "host/core/HostedPlugIn.h"

#include "host/core/ObserverRelay.h"
#include "host/core/PlugInLoader.h"

#include <utility>

namespace host {

using namespace std::chrono_literals;
using hostapi::ApertureExportPlugIn;

namespace {

constexpr auto kLookInterval = 100ms;
/// How long the end waits for an image in the making.
constexpr auto kPatienceWithImages = 10s;

/// Work of a plug-in may outlast its export, and wants its API manager as long.
void keepFor(const std::weak_ptr<ApertureExportPlugIn>& plugIn, std::shared_ptr<APIManager> manager) {
    static std::vector<std::pair<std::weak_ptr<ApertureExportPlugIn>, std::shared_ptr<APIManager>>> kept;
    std::erase_if(kept, [](const auto& entry) { return entry.first.expired(); });
    kept.emplace_back(plugIn, std::move(manager));
}

std::vector<std::optional<QString>> projectsOf(const std::vector<ExportedImage>& images) {
    std::vector<std::optional<QString>> projects;
    projects.reserve(images.size());
    for (const ExportedImage& image : images)
        projects.push_back(image.project);
    return projects;
}

} // namespace

std::unique_ptr<HostedPlugIn> HostedPlugIn::make(const QString& bundlePath, Services services,
                                                 const std::vector<ExportedImage>& images,
                                                 const std::weak_ptr<ExportClient>& client, QString& error) {
    if (ExportThread::isAnyRunning()) {
        // What it still writes would get among the files of the new plug-in, which has the same folder.
        error =
            QStringLiteral("A photograph of the export before is still being read. Try again in a moment.");
        return nullptr;
    }
    services.observer = std::make_shared<ObserverRelay>(client);
    auto apiManager = std::make_shared<APIManager>(
        std::make_shared<ExportManager>(projectsOf(images), client), std::move(services));
    auto plugIn = loadPlugIn(bundlePath, *apiManager, error);
    if (!plugIn)
        return nullptr;
    return std::unique_ptr<HostedPlugIn>(new HostedPlugIn(std::move(apiManager), std::move(plugIn), client));
}

HostedPlugIn::HostedPlugIn(std::shared_ptr<APIManager> apiManager,
                           std::shared_ptr<ApertureExportPlugIn> plugIn, std::weak_ptr<ExportClient> client)
    : apiManager_(std::move(apiManager))
    , plugIn_(std::move(plugIn))
    , client_(std::move(client))
    , progressWatch_(std::make_shared<ProgressWatch>(plugIn_, [client = client_](const auto& progress) {
        if (const auto alive = client.lock())
            alive->exportProgressed(progress);
    })) {
    QObject::connect(&lookTimer_, &QTimer::timeout, &lookTimer_, [this] { progressWatch_->look(); });
}

HostedPlugIn::~HostedPlugIn() {
    keepFor(plugIn_, apiManager_);
}

bool HostedPlugIn::activate(QString& error) {
    plugIn_->willBeActivated();
    answers_ = askFixedQuestions(*plugIn_);
    const auto wish = unmetWish(answers_);
    if (!wish)
        return true;
    error = *wish;
    // It may have begun to log in.
    plugIn_->exportManagerShouldCancelExport();
    return false;
}

void HostedPlugIn::beginImages(std::vector<ExportedImage> images) {
    lookTimer_.start(kLookInterval);
    lookAtProgress();
    plugIn_->exportManagerWillBeginExportToPath(exportFolder());
    exportThread_ = std::make_unique<ExportThread>(plugIn_, std::move(images), exportFolder(), client_,
                                                   [watch = progressWatch_] { watch->look(); });
}

void HostedPlugIn::finishImages() {
    plugIn_->exportManagerDidFinishExport();
    lookAtProgress();
}

void HostedPlugIn::cancel() {
    if (exportThread_)
        exportThread_->stop();
    plugIn_->exportManagerShouldCancelExport();
}

void HostedPlugIn::end() {
    lookTimer_.stop();
    if (exportThread_)
        exportThread_->stop();
    ended_ = std::chrono::steady_clock::now();
}

bool HostedPlugIn::isAtImages() const {
    return exportThread_ && exportThread_->isRunning() &&
           std::chrono::steady_clock::now() - ended_ < kPatienceWithImages;
}

void HostedPlugIn::lookAtProgress() {
    if (lookTimer_.isActive())
        progressWatch_->look();
}

} // namespace host
