#include "host/cli/ExportSession.h"

#include "host/cli/ImageFiles.h"
#include "host/cli/Resumption.h"
#include "host/core/AccountDefaults.h"
#include "host/core/JournalFolder.h"
#include "host/core/MemoryStores.h"
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

const QString kUnusable = QStringLiteral("the plug-in can't be used: ");
const QString kUnconfirmed =
    QStringLiteral("The images were uploaded, but the service did not confirm that it processed them.");

const QString kAnotherDestination =
    QStringLiteral("what is left belongs to another account, event or category than can be chosen now");
const QString kNoThread =
    QStringLiteral("the system has no thread left in which the images could be prepared");
const QString kCancelled = QStringLiteral("The export was cancelled.");
const QString kNothingPrepared = QStringLiteral("no image could be prepared");

QString inOneLine(const hostapi::Alert& alert) {
    return alert.informativeText && !alert.informativeText->isEmpty()
               ? alert.message + QStringLiteral(": ") + *alert.informativeText
               : alert.message;
}

std::optional<QString> projectOf(const QByteArray& path, const Options& options) {
    const auto folder = folderName(path);
    if (options.project || !folder)
        return options.project;
    // The server could make no folder of it otherwise.
    return withoutControls(*folder);
}

std::vector<ExportedImage> namedImages(const Options& options) {
    std::vector<QString> names;
    names.reserve(options.images.size());
    for (const QByteArray& path : options.images)
        names.push_back(fileName(path));
    names = uniqueNames(names);
    std::vector<ExportedImage> images;
    images.reserve(names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        const QByteArray& path = options.images[i];
        images.push_back({path, names[i], projectOf(path, options)});
    }
    return images;
}

std::vector<ExportedImage> remainingImages(const ExportRecord& record) {
    std::vector<ExportedImage> images;
    for (const std::size_t index : record.remaining()) {
        const RecordedImage& image = record.images[index];
        images.push_back({image.source, image.name, image.project, traceOf(image, record)});
    }
    return images;
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
    , images_(setting_.resumed ? remainingImages(setting_.resumed->record()) : namedImages(options)) {
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
    QString error;
    if (!plugIn_->activate(error)) {
        conclude(Outcome::Failed, kUnusable + error);
        return;
    }
    lookTimer_.start(kLookInterval);
    // What is remembered has begun to log in by itself.
    if (panel_->isBusy())
        lookAround();
    else
        logIn();
}

bool ExportSession::makePlugIn() {
    Services services;
    services.alertPresenter = std::make_shared<AnsweringAlertPresenter>(self_);
    if (options_.ephemeral) {
        services.credentialStore = std::make_shared<MemoryCredentialStore>();
        services.defaultsStore = std::make_shared<MemoryDefaultsStore>();
    } else {
        services.defaultsStore =
            std::make_shared<AccountDefaults>(options_.user, options_.passwordFile.has_value());
    }
    if (setting_.journalFolder)
        reconcileJournals(*setting_.journalFolder);
    QString error;
    plugIn_ = HostedPlugIn::make(setting_.bundlePath, std::move(services), images_, self_, error);
    if (!plugIn_)
        conclude(Outcome::Failed, kUnusable + error);
    return plugIn_ != nullptr;
}

void ExportSession::exportProgressed(const hostapi::ExportProgress& progress) {
    if (outcome_)
        return;
    watchdogs_.somethingHappened();
    reporter_.progress(progress);
}

bool ExportSession::openPanel() {
    QWidget* const view = plugIn_->settingsView();
    if (!view) {
        conclude(Outcome::Failed, QStringLiteral("the plug-in has no settings view"));
        return false;
    }
    window_ = std::make_unique<QWidget>();
    (new QVBoxLayout(window_.get()))->addWidget(view);
    // The ends of the panel's keyboard loop: nobody has a keyboard here, but a plug-in may count on the
    // questions.
    plugIn_->firstView();
    plugIn_->lastView();
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
    if (const auto refusal = panel_->choose(
            setting_.resumed ? WishedChoices(setting_.resumed->record().choices) : wishesOf(options_))) {
        conclude(Outcome::Refused, *refusal);
        return;
    }
    if (setting_.resumed && !sameDestination(panel_->choices(), setting_.resumed->record().choices)) {
        conclude(Outcome::Refused, kAnotherDestination);
        return;
    }
    enter(Phase::Beginning);
    plugIn_->requestExport();
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
    plugIn_->lookAtProgress();
    panelChanged();
}

void ExportSession::exportShouldBegin() {
    if (!listens())
        return;
    reporter_.hostCall("shouldBeginExport");
    if (phase_ != Phase::Beginning || cancelOutcome_)
        return;
    enter(Phase::Images);
    beginJournal();
    plugIn_->beginImages(images_);
}

void ExportSession::beginJournal() {
    QString error;
    if (setting_.resumed) {
        journal_ = setting_.resumed;
    } else if (setting_.journalFolder && setting_.service) {
        std::vector<RecordedImage> images;
        for (const ExportedImage& image : images_)
            images.push_back({absolutePath(image.path), image.name, image.project});
        const ExportChoices choices = panel_->choices();
        const auto sent = SentNames::inJournals(*setting_.journalFolder, *setting_.service, choices);
        complainOfReplaced(images, choices, sent);
        journal_ = ExportJournal::create(*setting_.journalFolder, *setting_.service, choices,
                                         std::move(images), sent.all(), error);
    } else if (setting_.journalFolder) {
        error = QStringLiteral("the plug-in does not tell which service it sends to");
    }
    if (journal_)
        journal_->beginAttempt(panel_->choices(), journal_->record().remaining(), plugIn_->exportFolder());
    else if (!error.isEmpty())
        reporter_.complaint(QStringLiteral("no journal can be kept, so that --resume won't know of this "
                                           "export: ") +
                            error);
}

void ExportSession::complainOfReplaced(const std::vector<RecordedImage>& images, const ExportChoices& choices,
                                       const SentNames& sent) {
    std::size_t count = 0;
    QString first;
    for (const RecordedImage& image : images) {
        const SentName* const replaced = sent.replacedBy(image, choices);
        if (replaced && count++ == 0)
            first = QStringLiteral("%1 that of %2")
                        .arg(preparedName(image.name), QString::fromUtf8(replaced->source));
    }
    if (count == 1)
        reporter_.complaint(
            QStringLiteral("an image takes the place of another photograph that was sent there "
                           "under the same name: %1")
                .arg(first));
    else if (count > 1)
        reporter_.complaint(
            QStringLiteral("%1 of the images take the places of other photographs that were sent "
                           "there under the same names: %2, and so on")
                .arg(QString::number(count), first));
}

void ExportSession::exportShouldCancel() {
    if (!listens())
        return;
    reporter_.hostCall("shouldCancelExport");
    if (cancelOutcome_) {
        conclude(*cancelOutcome_);
        return;
    }
    // A plug-in that breaks off may leave the rest of the cancel to its host: its windows, its timers.
    plugIn_->cancel();
    conclude(Outcome::Failed, QStringLiteral("the plug-in has cancelled the export"));
}

void ExportSession::exportShouldFinish() {
    if (journal_)
        confirmEarlierExports(journal_->processingConfirmed());
    if (!listens())
        return;
    reporter_.hostCall("shouldFinishExport");
    reporter_.result(
        QStringLiteral("%1 of %2 images exported.").arg(images_.size() - leftOutCount_).arg(images_.size()));
    if (leftOutCount_ == 0)
        conclude(Outcome::Finished);
    else if (leftOutCount_ < images_.size())
        conclude(Outcome::Partial);
    else
        conclude(Outcome::Failed, kNothingPrepared);
}

void ExportSession::alertShown(const hostapi::Alert& alert, AlertModality modality) {
    const bool counts = listens();
    reporter_.alert(alert, modality);
    if (!counts)
        return;
    if (alert.style == hostapi::AlertStyle::Critical) {
        const QString told = inOneLine(alert);
        trouble_ = trouble_.isEmpty() ? told : trouble_ + QLatin1Char(' ') + told;
        if (journal_)
            journal_->troubleTold(told);
        watchdogs_.criticalAlertAnswered();
    } else if (alert.style == hostapi::AlertStyle::Warning && phase_ == Phase::Beginning) {
        conclude(Outcome::Refused);
    }
}

void ExportSession::imagePrepared(std::uint32_t index, const QString& path) {
    if (journal_)
        journal_->imagePrepared(index, path);
    if (listens())
        tellPrepared(index, path);
}

void ExportSession::imageWritten(std::uint32_t index, const QString& path) {
    if (journal_)
        journal_->imagePrepared(index, path);
    if (listens())
        tellPrepared(index, path);
}

void ExportSession::imageLeftOut(std::uint32_t index) {
    if (listens())
        leaveOut(index, QStringLiteral("it can't be decoded"));
}

void ExportSession::imageCaptured(std::uint32_t index, const QDateTime& time) {
    if (listens() && journal_)
        journal_->imageCaptured(index, time);
}

void ExportSession::imageNotOffered(std::uint32_t index, const QString& reason) {
    if (listens())
        leaveOut(index, reason);
}

void ExportSession::imagesEnded(bool all) {
    if (!listens() || cancelOutcome_)
        return;
    if (!all) {
        // Nobody has stopped it: it could not begin.
        trouble_ = kNoThread;
        reporter_.complaint(kNoThread);
        cancel(Outcome::Failed, watchdogs_.quietLimit());
        return;
    }
    if (journal_)
        journal_->offeringEnded();
    if (!isToBeFinished(images_.size(), leftOutCount_, journal_ ? &journal_->record() : nullptr)) {
        reporter_.complaint(kNothingPrepared);
        cancel(Outcome::Failed, watchdogs_.quietLimit());
        return;
    }
    enter(Phase::Folders);
    plugIn_->finishImages();
    lookAround();
}

void ExportSession::imageUploaded(const QString& path) {
    if (journal_)
        journal_->imageUploaded(path);
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
    if (journal_)
        journal_->imageLeftOut(index, reason);
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
    watchdogs_.cancelBegun(patience);
    plugIn_->cancel();
}

void ExportSession::conclude(Outcome outcome, const QString& complaint) {
    if (outcome_)
        return;
    outcome_ = outcome;
    if (!complaint.isEmpty())
        reporter_.complaint(complaint);
    if (trouble_.isEmpty())
        trouble_ = outcome == Outcome::Cancelled ? kCancelled : complaint;
    watchdogs_.stop();
    lookTimer_.stop();
    if (plugIn_)
        plugIn_->end();
    imagesStandTimer_.start(plugIn_ && plugIn_->isAtImages() ? kImagesStandInterval : 0ms);
}

void ExportSession::endOnceImagesStand() {
    if (plugIn_ && plugIn_->isAtImages())
        return;
    imagesStandTimer_.stop();
    if (plugIn_)
        plugIn_->deactivate();
    endJournal();
    Q_EMIT ended(*outcome_);
}

void ExportSession::endJournal() {
    if (!journal_)
        return;
    journal_->attemptEnded(trouble_);
    if (const auto failure = journal_->failure())
        reporter_.complaint(QStringLiteral("the journal could not be written: ") + *failure);
    else if (const QString left = leftOver(journal_->record()); !left.isEmpty())
        reporter_.complaint(left);
}

} // namespace host::cli
