#include "host/cli/ExportSession.h"

#include "host/cli/ImageFiles.h"
#include "host/core/AccountDefaults.h"
#include "host/core/MemoryStores.h"
#include "host/core/ObserverRelay.h"
#include "host/core/PlugInLoader.h"
#include "host/core/UniqueNames.h"
#include "hostapi/SettingsPanel.h"
#include "platform/Secret.h"

#include <QtCore/QFileInfo>
#include <QtWidgets/QVBoxLayout>

namespace host::cli {

using namespace std::chrono_literals;

namespace {

constexpr auto kLookInterval = 100ms;
constexpr auto kImagesStandInterval = 10ms;
/// How long a plug-in that has become quiet may take to answer a cancel.
constexpr auto kPatienceWithTheQuiet = 2s;
/// How long the end waits for an image in the making.
constexpr auto kPatienceWithImages = 10s;

const QString kUnconfirmed =
    QStringLiteral("The images were uploaded, but the service did not confirm that it processed them.");

std::vector<ExportedImage> exportedImages(const std::vector<QByteArray>& paths) {
    std::vector<QString> names;
    names.reserve(paths.size());
    for (const QByteArray& path : paths)
        names.push_back(fileName(path));
    names = uniqueNames(names);
    std::vector<ExportedImage> images;
    images.reserve(paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i)
        images.push_back({paths[i], names[i]});
    return images;
}

std::vector<std::optional<QString>> projectsOf(const Options& options) {
    std::vector<std::optional<QString>> projects;
    projects.reserve(options.images.size());
    for (const QByteArray& path : options.images)
        projects.push_back(options.project ? options.project : folderName(path));
    return projects;
}

WishedChoices wishesOf(const Options& options) {
    WishedChoices wishes;
    wishes.event = options.event;
    wishes.category = options.category;
    wishes.autoCategories = options.autoCategories;
    wishes.pricing = options.pricing;
    wishes.resize = options.resize;
    if (options.quality)
        wishes.quality = *options.quality * hostapi::panel::kQualityScale;
    if (options.colorspace)
        wishes.colorSpace = static_cast<int>(*options.colorspace);
    return wishes;
}

/// The name that the plug-in gives the file that it makes of an image offered as `name`.
QString preparedName(const QString& name) {
    return stemOf(name) + QStringLiteral(".jpg");
}

} // namespace

std::shared_ptr<ExportSession> ExportSession::make(const Options& options, SessionSetting setting,
                                                   Reporter& reporter) {
    std::shared_ptr<ExportSession> session(new ExportSession(options, std::move(setting), reporter));
    session->self_ = session;
    return session;
}

ExportSession::ExportSession(const Options& options, SessionSetting setting, Reporter& reporter)
    : options_(options)
    , setting_(std::move(setting))
    , reporter_(reporter)
    , watchdogs_(setting_.quietLimit)
    , images_(exportedImages(options.images)) {
    connect(&watchdogs_, &Watchdogs::nothingHappens, this, &ExportSession::giveUp);
    connect(&watchdogs_, &Watchdogs::criticalAlertWithoutCancel, this,
            [this] { cancel(Outcome::Failed, watchdogs_.quietLimit()); });
    connect(&watchdogs_, &Watchdogs::cancelUnanswered, this,
            [this] { conclude(*cancelOutcome_, QStringLiteral("the plug-in did not answer the cancel")); });
    connect(&lookTimer_, &QTimer::timeout, this, &ExportSession::lookAround);
    connect(&imagesStandTimer_, &QTimer::timeout, this, &ExportSession::endOnceImagesStand);
}

ExportSession::~ExportSession() = default;

// --- Beginning ---

void ExportSession::start() {
    enter(Phase::Login);
    if (!makePlugIn() || !openPanel())
        return;
    lookTimer_.start(kLookInterval);
    plugIn_->willBeActivated();
    // What is remembered has begun to log in by itself.
    if (panel_->isBusy())
        lookAround();
    else
        logIn();
}

bool ExportSession::makePlugIn() {
    Services services;
    services.alertPresenter = std::make_shared<AnsweringAlertPresenter>(self_);
    services.observer = std::make_shared<ObserverRelay>(self_);
    if (options_.ephemeral) {
        services.credentialStore = std::make_shared<MemoryCredentialStore>();
        services.defaultsStore = std::make_shared<MemoryDefaultsStore>();
    } else {
        services.defaultsStore =
            std::make_shared<AccountDefaults>(options_.user, options_.passwordFile.has_value());
    }
    apiManager_ = std::make_unique<APIManager>(std::make_shared<ExportManager>(projectsOf(options_), self_),
                                               std::move(services));
    QString error;
    plugIn_ = loadPlugIn(setting_.bundlePath, *apiManager_, error);
    if (!plugIn_) {
        conclude(Outcome::Failed, QStringLiteral("the plug-in can't be used: ") + error);
        return false;
    }
    progressWatch_ = std::make_shared<ProgressWatch>(plugIn_, [session = self_](const auto& progress) {
        const auto alive = session.lock();
        if (!alive || alive->outcome_)
            return;
        alive->watchdogs_.somethingHappened();
        alive->reporter_.progress(progress);
    });
    return true;
}

bool ExportSession::openPanel() {
    QWidget* const view = plugIn_->settingsView();
    if (!view) {
        conclude(Outcome::Failed, QStringLiteral("the plug-in has no settings view"));
        return false;
    }
    window_ = std::make_unique<QWidget>();
    (new QVBoxLayout(window_.get()))->addWidget(view);
    QString error;
    panel_ = PanelDriver::make(*view, error);
    if (!panel_) {
        conclude(Outcome::Failed, error);
        return false;
    }
    // Queued: the plug-in is in the middle of changing the view.
    connect(panel_.get(), &PanelDriver::busyChanged, this, &ExportSession::lookAround, Qt::QueuedConnection);
    return true;
}

void ExportSession::logIn() {
    const QString account = options_.user.value_or(panel_->accountName());
    if (account.isEmpty()) {
        conclude(Outcome::Usage, QStringLiteral("no account is remembered; use --user"));
        return;
    }
    Password answer = setting_.password(account);
    if (std::holds_alternative<Interrupted>(answer)) {
        conclude(Outcome::Cancelled);
        return;
    }
    if (const auto* none = std::get_if<NoPassword>(&answer)) {
        conclude(Outcome::Usage, none->reason);
        return;
    }
    if (options_.remember || options_.ephemeral)
        panel_->tickRemember();
    auto& password = std::get<QString>(answer);
    // The field gets characters of its own: it would share these, and be wiped along with them.
    panel_->logIn(account, QString(password.constData(), password.size()));
    platform::wipe(password);
    lookAround();
}

void ExportSession::panelChanged() {
    if (cancelOutcome_ || (phase_ != Phase::Login && phase_ != Phase::Lists))
        return;
    if (panel_->isBusy()) {
        if (phase_ == Phase::Login && panel_->isLoggedIn())
            enter(Phase::Lists);
    } else if (panel_->isLoggedIn()) {
        listsLoaded();
    } else {
        conclude(Outcome::LoginFailed, QStringLiteral("the login failed"));
    }
}

void ExportSession::listsLoaded() {
    reporter_.lists(panel_->lists(), options_.list);
    if (options_.list) {
        conclude(Outcome::Finished);
        return;
    }
    if (const auto refusal = panel_->choose(wishesOf(options_))) {
        conclude(Outcome::Refused, *refusal);
        return;
    }
    enter(Phase::Beginning);
    plugIn_->exportManagerShouldBeginExport();
}

void ExportSession::enter(Phase phase) {
    phase_ = phase;
    // A large picture takes its time, and the network has no part in it.
    watchdogs_.allowQuietness(phase == Phase::Images);
}

QString ExportSession::waitingFor(Phase phase) {
    switch (phase) {
    case Phase::Login:
        return QStringLiteral("the answer to the login");
    case Phase::Lists:
        return QStringLiteral("the lists of events and pricing templates");
    case Phase::Beginning:
        return QStringLiteral("the plug-in to begin the export");
    case Phase::Images:
        return QStringLiteral("the images to be prepared");
    case Phase::Folders:
        return QStringLiteral("the folders on the FTP host");
    case Phase::Upload:
        return QStringLiteral("the upload to go on");
    case Phase::Finishing:
        break;
    }
    return QStringLiteral("the answer to the finishing request");
}

// --- What the plug-in tells ---

bool ExportSession::listens() {
    if (!outcome_) {
        watchdogs_.somethingHappened();
        lookAround();
    }
    return !outcome_;
}

void ExportSession::lookAround() {
    if (outcome_)
        return;
    if (const QString status = panel_->statusText(); status != status_) {
        status_ = status;
        watchdogs_.somethingHappened();
        reporter_.status(status);
    }
    progressWatch_->look();
    panelChanged();
}

void ExportSession::exportShouldBegin() {
    if (!listens())
        return;
    reporter_.hostCall("shouldBeginExport");
    if (phase_ != Phase::Beginning || cancelOutcome_)
        return;
    enter(Phase::Images);
    const QString folder = plugIn_->destinationPath();
    plugIn_->exportManagerWillBeginExportToPath(folder);
    exportThread_ = std::make_unique<ExportThread>(plugIn_, images_, folder, self_,
                                                   [watch = progressWatch_] { watch->look(); });
}

void ExportSession::exportShouldCancel() {
    if (!listens())
        return;
    reporter_.hostCall("shouldCancelExport");
    if (cancelOutcome_)
        conclude(*cancelOutcome_);
    else
        conclude(Outcome::Failed, QStringLiteral("the plug-in has cancelled the export"));
}

void ExportSession::exportShouldFinish() {
    if (!listens())
        return;
    reporter_.hostCall("shouldFinishExport");
    reporter_.result(
        QStringLiteral("%1 of %2 images exported.").arg(images_.size() - leftOutCount_).arg(images_.size()));
    conclude(leftOutCount_ == 0 ? Outcome::Finished : Outcome::Partial);
}

void ExportSession::alertShown(const hostapi::Alert& alert, AlertModality modality) {
    const bool counts = listens();
    reporter_.alert(alert, modality);
    if (!counts)
        return;
    if (alert.style == hostapi::AlertStyle::Critical)
        watchdogs_.criticalAlertAnswered();
    else if (alert.style == hostapi::AlertStyle::Warning && phase_ == Phase::Beginning)
        conclude(Outcome::Refused);
}

void ExportSession::imagePrepared(std::uint32_t index, const QString& path) {
    if (listens())
        tellPrepared(index, path);
}

void ExportSession::imageWritten(std::uint32_t index, const QString& path) {
    if (listens())
        tellPrepared(index, path);
}

void ExportSession::imageLeftOut(std::uint32_t index) {
    if (listens())
        leaveOut(index, QStringLiteral("it can't be decoded"));
}

void ExportSession::imageNotOffered(std::uint32_t index, const QString& reason) {
    if (listens())
        leaveOut(index, reason);
}

void ExportSession::imagesEnded(bool all) {
    if (!listens() || !all || cancelOutcome_)
        return;
    if (leftOutCount_ == images_.size()) {
        // Finishing would have the service process an event to which nothing was sent.
        reporter_.complaint(QStringLiteral("no image could be prepared"));
        cancel(Outcome::Failed, watchdogs_.quietLimit());
        return;
    }
    enter(Phase::Folders);
    plugIn_->exportManagerDidFinishExport();
    lookAround();
}

void ExportSession::imageUploaded(const QString&) {
    listens();
}

void ExportSession::listsCouldNotBeLoaded() {
    if (listens())
        conclude(cancelOutcome_.value_or(Outcome::Refused),
                 QStringLiteral("the lists of events and pricing templates could not be loaded"));
}

void ExportSession::folderChainEnded(bool complete) {
    if (!listens())
        return;
    if (complete)
        enter(Phase::Upload);
    else
        watchdogs_.criticalAlertAnswered();
}

void ExportSession::uploadEnded(bool complete) {
    if (!listens())
        return;
    if (complete)
        enter(Phase::Finishing);
    else
        watchdogs_.criticalAlertAnswered();
}

void ExportSession::finishingRequestUnanswered() {
    if (!listens())
        return;
    if (cancelOutcome_)
        conclude(*cancelOutcome_);
    else
        conclude(Outcome::Unconfirmed, kUnconfirmed);
}

void ExportSession::leaveOut(std::uint32_t index, const QString& reason) {
    if (index >= images_.size())
        return;
    ++leftOutCount_;
    const ExportedImage& image = images_[index];
    reporter_.image(index, fileName(image.path), preparedName(image.name), false);
    reporter_.complaint(QStringLiteral("%1 was left out: %2").arg(QString::fromUtf8(image.path), reason));
}

void ExportSession::tellPrepared(std::uint32_t index, const QString& path) {
    if (index < images_.size())
        reporter_.image(index, fileName(images_[index].path), QFileInfo(path).fileName(), true);
}

// --- Ending ---

void ExportSession::interrupt() {
    if (plugIn_)
        cancel(Outcome::Cancelled, watchdogs_.quietLimit());
    else
        conclude(Outcome::Cancelled);
}

void ExportSession::giveUp() {
    const auto limit = std::chrono::duration_cast<std::chrono::seconds>(watchdogs_.quietLimit());
    reporter_.complaint(QStringLiteral("nothing has happened for %1 seconds; it was waited for %2")
                            .arg(limit.count())
                            .arg(waitingFor(phase_)));
    cancel(Outcome::Failed, kPatienceWithTheQuiet);
}

void ExportSession::cancel(Outcome outcome, std::chrono::milliseconds patience) {
    if (outcome_ || cancelOutcome_)
        return;
    cancelOutcome_ = outcome;
    if (exportThread_)
        exportThread_->stop();
    watchdogs_.cancelBegun(patience);
    plugIn_->exportManagerShouldCancelExport();
}

void ExportSession::conclude(Outcome outcome, const QString& complaint) {
    if (outcome_)
        return;
    outcome_ = outcome;
    if (!complaint.isEmpty())
        reporter_.complaint(complaint);
    watchdogs_.stop();
    lookTimer_.stop();
    if (exportThread_)
        exportThread_->stop();
    concluded_ = std::chrono::steady_clock::now();
    imagesStandTimer_.start(exportThread_ ? kImagesStandInterval : 0ms);
}

void ExportSession::endOnceImagesStand() {
    const bool imagesMove = exportThread_ && exportThread_->isRunning();
    if (imagesMove && std::chrono::steady_clock::now() - concluded_ < kPatienceWithImages)
        return;
    imagesStandTimer_.stop();
    if (plugIn_)
        plugIn_->willBeDeactivated();
    Q_EMIT ended(*outcome_);
}

} // namespace host::cli
