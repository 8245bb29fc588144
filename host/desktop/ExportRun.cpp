#include "host/desktop/ExportRun.h"

#include "host/core/AccountDefaults.h"
#include "host/core/SentNames.h"
#include "host/core/Service.h"
#include "host/desktop/BackgroundTask.h"
#include "host/desktop/Counting.h"
#include "hostapi/SettingsPanel.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <utility>

namespace host::desktop {

using namespace std::chrono_literals;

namespace {

constexpr auto kStandInterval = 10ms;
/// How long a plug-in that has broken off may take to cancel by itself.
constexpr auto kPatienceWithTheBroken = 1s;
/// How long it may take to answer a cancel.
constexpr auto kPatienceWithTheCancelled = 3s;

/// How long the end waits for a look at files, whose server may be away.
constexpr auto kPatienceWithFiles = 10s;

constexpr const char* kCannotDecode =
    QT_TRANSLATE_NOOP("host::desktop::ExportRun", "It cannot be read as a picture.");
constexpr const char* kCancelled =
    QT_TRANSLATE_NOOP("host::desktop::ExportRun", "The export was cancelled before its turn came.");
constexpr const char* kNothingPrepared =
    QT_TRANSLATE_NOOP("host::desktop::ExportRun", "None of the photographs could be prepared.");
constexpr const char* kNoThread = QT_TRANSLATE_NOOP(
    "host::desktop::ExportRun", "The system has no thread left in which the photographs could be prepared.");
constexpr const char* kBrokeOff = QT_TRANSLATE_NOOP("host::desktop::ExportRun", "The export broke off.");

std::vector<ExportedImage> exportedImages(const std::vector<RecordedImage>& images) {
    std::vector<ExportedImage> exported;
    exported.reserve(images.size());
    for (const RecordedImage& image : images)
        exported.push_back({image.source, image.name, image.project});
    return exported;
}

std::vector<ExportedImage> imagesOfAttempt(const ExportRecord& record) {
    std::vector<ExportedImage> images;
    images.reserve(record.attempt.size());
    for (const std::size_t index : record.attempt) {
        const RecordedImage& image = record.images[index];
        images.push_back({image.source, image.name, image.project, traceOf(image, record)});
    }
    return images;
}

std::vector<RecordedImage> imagesAt(const std::vector<std::size_t>& indices, const ExportRecord& record) {
    std::vector<RecordedImage> images;
    images.reserve(indices.size());
    for (const std::size_t index : indices)
        images.push_back(record.images[index]);
    return images;
}

} // namespace

std::shared_ptr<ExportRun> ExportRun::make(ExportJob job, const ExportSetting& setting) {
    std::shared_ptr<ExportRun> run(new ExportRun(std::move(job), setting));
    run->self_ = run;
    return run;
}

ExportRun::ExportRun(ExportJob job, ExportSetting setting)
    : job_(std::move(job))
    , setting_(std::move(setting)) {
    cancelTimer_.setSingleShot(true);
    connect(&cancelTimer_, &QTimer::timeout, this, [this] {
        if (cancelEnd_)
            conclude(*cancelEnd_);
        else
            cancelThroughPlugIn(End::Failed);
    });
    connect(&standTimer_, &QTimer::timeout, this, &ExportRun::endOnceAllStands);
}

std::optional<QString> ExportRun::journalFailure() const {
    return journal_ ? journal_->failure() : std::nullopt;
}

std::vector<RecordedImage> ExportRun::offeredImages() const {
    if (!job_.journal)
        return job_.images;
    if (job_.confirmationOnly)
        return {};
    const ExportRecord& record = job_.journal->record();
    return imagesAt(record.remaining(), record);
}

// --- The dialog ---

bool ExportRun::open(QWidget* window, QString& error) {
    if (!makePlugIn(error) || !findService(error) || !openDialog(window, error))
        return false;
    if (!plugIn_->activate(error)) {
        plugIn_->deactivate();
        return false;
    }
    if (job_.journal && !panel_->isBusy() && panel_->accountName().isEmpty()) {
        auto* const field = dialog_->settingsView().findChild<QLineEdit*>(hostapi::panel::kUsernameField);
        field->setText(job_.journal->record().choices.account);
    }
    return true;
}

bool ExportRun::openDialog(QWidget* window, QString& error) {
    QWidget* const view = plugIn_->settingsView();
    if (!view) {
        error = tr("The plug-in has no settings view.");
        return false;
    }
    dialog_ = std::make_unique<ExportDialog>(*view, *plugIn_, heading(), window);
    panel_ = PanelDriver::make(dialog_->settingsView(), error);
    if (!panel_)
        return false;
    connect(dialog_.get(), &ExportDialog::exportRequested, this, [this] { plugIn_->requestExport(); });
    connect(dialog_.get(), &QDialog::rejected, this, &ExportRun::cancel);
    // Queued: the plug-in is in the middle of changing the view.
    connect(panel_.get(), &PanelDriver::busyChanged, this, &ExportRun::presetChoices, Qt::QueuedConnection);
    dialog_->open();
    return true;
}

bool ExportRun::makePlugIn(QString& error) {
    Services services;
    services.alertPresenter = std::make_shared<ShowingAlertPresenter>(self_);
    services.credentialStore = setting_.credentialStore;
    services.defaultsStore = setting_.defaultsStore;
    if (!services.defaultsStore && job_.journal)
        // Nobody else's remembered login gets into an export of this account.
        services.defaultsStore =
            std::make_shared<AccountDefaults>(job_.journal->record().choices.account, false);
    plugIn_ = HostedPlugIn::make(setting_.bundlePath, std::move(services), exportedImages(offeredImages()),
                                 self_, error);
    return plugIn_ != nullptr;
}

bool ExportRun::findService(QString& error) {
    const auto configuration = serviceConfiguration(setting_.bundlePath, error);
    if (!configuration)
        return false;
    service_ = serviceIdentity(*configuration);
    // An equal account and event of this one would be somebody else's.
    if (job_.journal && job_.journal->record().service != service_) {
        error = tr("The earlier export belongs to another service: %1.").arg(job_.journal->record().service);
        return false;
    }
    return true;
}

QString ExportRun::heading() const {
    if (!job_.journal)
        return tr("%1 will be exported.").arg(photographs(job_.imageCount()));
    const QString event = job_.journal->record().choices.eventName;
    if (job_.confirmationOnly)
        return tr("The service will be asked again to process what was uploaded to “%1”. No photograph is "
                  "sent.")
            .arg(event);
    return tr("What remains of the export to “%1” will be exported: %2.")
        .arg(event, photographs(job_.imageCount()));
}

void ExportRun::presetChoices() {
    if (!job_.journal || choicesArePreset_ || end_ || panel_->isBusy() || !panel_->isLoggedIn())
        return;
    choicesArePreset_ = true;
    const ExportChoices& choices = job_.journal->record().choices;
    if (panel_->accountName() != choices.account)
        dialog_->setNotice(tr("The earlier export was made with the account “%1”.").arg(choices.account));
    else if (const auto refusal = panel_->choose(WishedChoices(choices)))
        dialog_->setNotice(tr("The earlier choices could not be made again: %1").arg(*refusal));
}

void ExportRun::listsCouldNotBeLoaded() {
    if (dialog_ && !end_)
        dialog_->setNotice(
            tr("The lists of events and pricing templates could not be loaded. Close this dialog "
               "and try again."));
}

// --- The export ---

void ExportRun::exportShouldBegin() {
    if (stage_ != Stage::Choosing || end_ || cancelEnd_)
        return;
    stage_ = Stage::Exporting;
    // Hidden, not destroyed: the plug-in reads its controls.
    dialog_->hide();
    Q_EMIT begun();
    beginJournal();
}

void ExportRun::beginJournal() {
    const ExportChoices choices = panel_->choices();
    if (job_.journal && sameDestination(job_.journal->record().choices, choices)) {
        journal_ = std::move(job_.journal);
        beginImages(choices,
                    job_.confirmationOnly ? std::vector<std::size_t>() : journal_->record().remaining());
    } else if (job_.confirmationOnly) {
        // Nothing was sent there that could be processed.
        reason_ =
            tr("The confirmation can only be asked for with the account, event and category of the export.");
        cancelThroughPlugIn(End::Failed);
    } else {
        // What goes somewhere else is an export of its own.
        makeJournal(choices);
    }
}

void ExportRun::makeJournal(const ExportChoices& choices) {
    struct Made {
        std::unique_ptr<ExportJournal> journal;
        QString error;
    };
    const auto made = std::make_shared<Made>();
    workBeside(
        [made, folder = setting_.journalFolder, service = service_, choices, offered = offeredImages()] {
            const auto sent = SentNames::inJournals(folder, service, choices);
            auto images = offered;
            sent.giveNames(images, choices);
            made->journal =
                ExportJournal::create(folder, service, choices, std::move(images), sent.all(), made->error);
        },
        [this, made] { journalMade(std::move(made->journal), made->error); });
}

void ExportRun::journalMade(std::unique_ptr<ExportJournal> journal, const QString& error) {
    journal_ = std::move(journal);
    if (!journal_)
        reason_ =
            tr("The outcome of an export cannot be kept in “%1”: %2").arg(setting_.journalFolder, error);
    // It may have been given up meanwhile.
    if (end_) {
        noteEnd();
    } else if (!journal_) {
        cancelThroughPlugIn(End::Failed);
    } else if (!cancelEnd_) {
        std::vector<std::size_t> all(journal_->record().images.size());
        std::iota(all.begin(), all.end(), std::size_t{0});
        beginImages(journal_->record().choices, std::move(all));
    }
}

void ExportRun::beginImages(const ExportChoices& choices, std::vector<std::size_t> images) {
    journal_->beginAttempt(choices, std::move(images), plugIn_->exportFolder());
    plugIn_->beginImages(imagesOfAttempt(journal_->record()));
}

void ExportRun::workBeside(std::function<void()> work, std::function<void()> then) {
    ++worksBeside_;
    runBeside("journals", std::move(work), [self = self_, then = std::move(then)] {
        if (const auto run = self.lock()) {
            --run->worksBeside_;
            then();
        }
    });
}

void ExportRun::exportProgressed(const hostapi::ExportProgress& progress) {
    if (!end_)
        Q_EMIT progressed(progress);
}

void ExportRun::imagePrepared(std::uint32_t index, const QString& path) {
    if (end_ || !journal_)
        return;
    journal_->imagePrepared(index, path);
}

void ExportRun::imageWritten(std::uint32_t index, const QString& path) {
    imagePrepared(index, path);
}

void ExportRun::imageLeftOut(std::uint32_t index) {
    imageNotOffered(index, tr(kCannotDecode));
}

void ExportRun::imageCaptured(std::uint32_t index, const QDateTime& time) {
    if (!end_ && journal_)
        journal_->imageCaptured(index, time);
}

void ExportRun::imageNotOffered(std::uint32_t index, const QString& reason) {
    if (end_ || !journal_)
        return;
    ++leftOutCount_;
    journal_->imageLeftOut(index, reason);
}

void ExportRun::imagesEnded(bool all) {
    if (end_ || cancelEnd_)
        return;
    if (!all) {
        // Nobody has stopped it: it could not begin.
        reason_ = tr(kNoThread);
        cancelThroughPlugIn(End::Failed);
        return;
    }
    journal_->offeringEnded();
    if (!isToBeFinished(journal_->record().attempt.size(), leftOutCount_, &journal_->record())) {
        reason_ = tr(kNothingPrepared);
        cancelThroughPlugIn(End::Failed);
        return;
    }
    plugIn_->finishImages();
}

void ExportRun::imageUploaded(const QString& path) {
    // True also where the server's word comes after a cancel.
    if (journal_)
        journal_->imageUploaded(path);
}

void ExportRun::folderChainEnded(bool complete) {
    if (!complete)
        breakOff(tr(kBrokeOff));
}

void ExportRun::uploadEnded(bool complete) {
    if (!complete)
        breakOff(tr(kBrokeOff));
}

void ExportRun::alertShown(const hostapi::Alert& alert) {
    ++openAlerts_;
    if (!cancelEnd_)
        cancelTimer_.stop();
    if (alert.style != hostapi::AlertStyle::Critical || !isExporting() || end_)
        return;
    const QString told = QStringList{alert.message, alert.informativeText.value_or(QString())}
                             .join(QLatin1Char(' '))
                             .trimmed();
    reason_ = reason_.isEmpty() ? told : reason_ + QLatin1Char(' ') + told;
    if (journal_)
        journal_->troubleTold(told);
}

void ExportRun::alertAnswered() {
    --openAlerts_;
    if (!reason_.isEmpty() && !cancelEnd_)
        breakOff(reason_);
}

void ExportRun::breakOff(const QString& reason) {
    if (end_ || cancelEnd_ || !isExporting())
        return;
    if (reason_.isEmpty())
        reason_ = reason;
    if (openAlerts_ == 0)
        cancelTimer_.start(kPatienceWithTheBroken);
}

// --- The end ---

void ExportRun::exportShouldCancel() {
    if (cancelEnd_) {
        conclude(*cancelEnd_);
    } else if (isExporting() && !end_) {
        // A plug-in that breaks off may leave the rest of the cancel to its host: its windows, its timers.
        plugIn_->cancel();
        conclude(reason_.isEmpty() ? End::Cancelled : End::Failed);
    }
}

void ExportRun::exportShouldFinish() {
    if (end_ || !journal_)
        return;
    const auto confirmation = std::make_shared<const Confirmation>(journal_->processingConfirmed());
    conclude(End::Finished);
    workBeside([confirmation] { confirmEarlierExports(*confirmation); }, [] {});
}

void ExportRun::finishingRequestUnanswered() {
    if (isExporting())
        conclude(cancelEnd_.value_or(End::Unconfirmed));
}

void ExportRun::cancel() {
    cancelThroughPlugIn(isExporting() ? End::Cancelled : End::NotBegun);
}

void ExportRun::cancelThroughPlugIn(End end) {
    if (end_ || cancelEnd_)
        return;
    cancelEnd_ = end;
    cancelTimer_.start(kPatienceWithTheCancelled);
    plugIn_->cancel();
    // A login that is under way ends by itself: nobody has to wait for it.
    if (end == End::NotBegun)
        conclude(end);
}

void ExportRun::conclude(End end) {
    if (end_)
        return;
    end_ = end;
    sinceEnd_.start();
    cancelTimer_.stop();
    plugIn_->end();
    noteEnd();
    standTimer_.start(kStandInterval);
}

void ExportRun::noteEnd() {
    if (journal_)
        journal_->attemptEnded(end_ == End::Cancelled && reason_.isEmpty() ? tr(kCancelled) : reason_);
}

void ExportRun::endOnceAllStands() {
    const bool isAtFiles =
        worksBeside_ > 0 && std::chrono::milliseconds(sinceEnd_.elapsed()) < kPatienceWithFiles;
    if (isAtFiles || plugIn_->isAtImages() || openAlerts_ > 0)
        return;
    standTimer_.stop();
    plugIn_->deactivate();
    Q_EMIT ended(*end_);
}

} // namespace host::desktop
