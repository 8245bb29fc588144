#include "host/desktop/Exporter.h"

#include "host/core/Service.h"
#include "host/desktop/BackgroundTask.h"
#include "platform/Alert.h"

#include <QtCore/QFile>

#include <algorithm>

namespace host::desktop {

EarlierExports earlierExports(const ExportSetting& setting) {
    EarlierExports exports;
    QString ignored; // Whoever exports is told.
    const auto configuration = serviceConfiguration(setting.bundlePath, ignored);
    for (const FoundJournal& journal : journalsIn(setting.journalFolder)) {
        if (journal.isHeld)
            continue;
        if (!journal.record)
            exports.unreadable.push_back({journal.path, journal.error});
        else if (!journal.record->isSettled() && configuration &&
                 journal.record->service == serviceIdentity(*configuration))
            exports.unfinished.push_back({journal.path, unfinishedLine(*journal.record)});
    }
    return exports;
}

Exporter::Exporter(ExportSetting setting, QWidget& window)
    : setting_(std::move(setting))
    , window_(window) {}

Exporter::~Exporter() = default;

void Exporter::request(ExportJob job) {
    // Once the dialog is there, the window takes no requests: a key that was hit twice means one export.
    if (!isStarting_)
        enqueue({std::move(job), {}});
}

void Exporter::review(const QString& journalPath) {
    enqueue({std::nullopt, journalPath});
}

void Exporter::enqueue(Task task) {
    waiting_.push_back(std::move(task));
    if (!isBusy())
        next();
    Q_EMIT waitingChanged();
}

void Exporter::next() {
    if (isBusy() || quits_ || waiting_.empty())
        return;
    Task task = std::move(waiting_.front());
    waiting_.pop_front();
    Q_EMIT waitingChanged();
    if (task.job)
        start(std::move(*task.job));
    else
        openReview(task.journalPath);
}

void Exporter::prepare(std::function<void()> work, std::function<void()> then) {
    isPreparing_ = true;
    runBeside("journals", std::move(work), [exporter = QPointer(this), then = std::move(then)] {
        if (!exporter)
            return;
        exporter->isPreparing_ = false;
        if (!exporter->quits_)
            then();
    });
}

void Exporter::openReview(const QString& journalPath) {
    struct Opened {
        std::unique_ptr<ExportJournal> journal;
        QString error;
    };
    const auto opened = std::make_shared<Opened>();
    prepare([opened, journalPath] { opened->journal = ExportJournal::open(journalPath, opened->error); },
            [this, opened, journalPath] {
                if (opened->journal)
                    openSummary(std::move(opened->journal), std::nullopt, {});
                else if (QFile::exists(journalPath))
                    showError(tr("What is known of this export cannot be read."), opened->error);
                else
                    showError(tr("Nothing is left of this export."),
                              tr("Meanwhile it was finished, begun anew or forgotten."));
            });
}

void Exporter::start(ExportJob job) {
    isStarting_ = true;
    prepare([folder = setting_.journalFolder] { reconcileJournals(folder); },
            [this, prepared = std::make_shared<ExportJob>(std::move(job))] { open(std::move(*prepared)); });
}

void Exporter::open(ExportJob job) {
    isStarting_ = false;
    run_ = ExportRun::make(std::move(job), setting_);
    connect(run_.get(), &ExportRun::begun, this, &Exporter::begun);
    connect(run_.get(), &ExportRun::progressed, this, &Exporter::progressed);
    // Queued: the run is let go of then.
    connect(run_.get(), &ExportRun::ended, this, &Exporter::runEnded, Qt::QueuedConnection);
    QString error;
    if (run_->open(&window_, error))
        return;
    run_.reset();
    showError(tr("The export plug-in cannot be used."), error);
}

void Exporter::cancel() {
    if (run_)
        run_->cancel();
}

void Exporter::cancelToQuit() {
    quits_ = true;
    if (summary_)
        summary_->reject();
    cancel();
}

std::size_t Exporter::waitingCount() const {
    return static_cast<std::size_t>(std::count_if(waiting_.begin(), waiting_.end(),
                                                  [](const Task& task) { return task.job.has_value(); }));
}

bool Exporter::isExporting() const {
    return run_ && run_->isExporting();
}

void Exporter::runEnded(ExportRun::End end) {
    const std::shared_ptr<ExportRun> run = std::move(run_);
    run_.reset();
    if (end == ExportRun::End::NotBegun) {
        next();
        return;
    }
    Q_EMIT ended();
    if (quits_)
        return;
    QString reason = run->reason();
    if (const auto failure = run->journalFailure())
        reason += tr("\nThis outcome could not be kept on the disk: %1").arg(*failure);
    if (auto journal = run->takeJournal())
        openSummary(std::move(journal), end, reason.trimmed());
    else
        showError(tr("The export was not begun."), reason);
    Q_EMIT earlierExportsChanged();
}

void Exporter::openSummary(std::unique_ptr<ExportJournal> journal, std::optional<ExportRun::End> end,
                           const QString& reason) {
    const SummaryText text = summaryText(journal->record(), end, reason);
    summary_ = new SummaryDialog(std::move(journal), text, &window_);
    connect(summary_, &QDialog::finished, this, &Exporter::summaryClosed);
    summary_->open();
}

void Exporter::summaryClosed() {
    SummaryDialog* const summary = summary_;
    summary_ = nullptr;
    summary->deleteLater();
    std::unique_ptr<ExportJournal> journal = summary->takeJournal();
    switch (summary->decision()) {
    case SummaryDialog::Decision::ExportRemaining:
    case SummaryDialog::Decision::AskForConfirmation: {
        ExportJob job;
        job.journal = std::move(journal);
        job.confirmationOnly = summary->decision() == SummaryDialog::Decision::AskForConfirmation;
        // Before those that wait: it is what its user is at.
        waiting_.push_front({std::move(job), {}});
        break;
    }
    case SummaryDialog::Decision::Forget:
        if (!journal->discard())
            showError(tr("The export could not be forgotten."), journal->path());
        break;
    case SummaryDialog::Decision::Close:
        break;
    }
    journal.reset();
    Q_EMIT earlierExportsChanged();
    next();
}

void Exporter::showError(const QString& headline, const QString& details) {
    platform::Alert(platform::AlertStyle::Critical, headline, details).beginSheet(&window_);
    QMetaObject::invokeMethod(this, &Exporter::next, Qt::QueuedConnection);
}

} // namespace host::desktop
