#pragma once

#include "host/core/JournalFolder.h"
#include "host/desktop/ExportJob.h"
#include "host/desktop/ExportRun.h"
#include "host/desktop/SummaryDialog.h"

#include <QtCore/QObject>
#include <QtCore/QPointer>

#include <deque>
#include <memory>
#include <optional>

namespace host::desktop {

/// What earlier exports have left.
struct EarlierExports {
    struct Journal {
        QString path;
        QString text; ///< What is left, in a line; or why the journal can't be read.
        bool operator==(const Journal&) const = default;
    };
    /// The journals of the plug-in's service that have something left to do and that nobody holds; none where
    /// it is not known which service that is.
    std::vector<Journal> unfinished;
    /// The journals that are damaged, or of another version of the program: what is left is not known.
    std::vector<Journal> unreadable;

    bool isEmpty() const { return unfinished.empty() && unreadable.empty(); }
    bool operator==(const EarlierExports&) const = default;
};

/// Any thread.
EarlierExports earlierExports(const ExportSetting& setting);

/// Does one export after the other, and shows what has become of each. Main thread.
class Exporter final : public QObject {
    Q_OBJECT

public:
    /// Dialogs open over `window`, which must outlive the exporter.
    Exporter(ExportSetting setting, QWidget& window);
    ~Exporter() override;

    /// Opens the export's dialog, after those that are asked for already have ended.
    void request(ExportJob job);
    /// Shows what is known of an earlier export, after what is going on.
    void review(const QString& journalPath);
    void cancel();
    /// Ends what is going on, for an application that quits: `ended` follows an export that has begun, and
    /// nothing is shown any more.
    void cancelToQuit();

    /// A plug-in is at work for an export that has begun.
    bool isExporting() const;
    /// How many exports wait for what is going on.
    std::size_t waitingCount() const;
    const ExportSetting& setting() const { return setting_; }

Q_SIGNALS:
    void begun();
    void progressed(const hostapi::ExportProgress& progress);
    /// An export that has begun is over; its summary follows.
    void ended();
    void waitingChanged();
    /// Earlier exports may have less left, or more.
    void earlierExportsChanged();

private:
    struct Task {
        std::optional<ExportJob> job;
        QString journalPath; ///< To be shown, where there is no job.
    };

    bool isBusy() const { return isPreparing_ || run_ || summary_; }
    void enqueue(Task task);
    void next();
    /// Works with the journals beside the main thread, and then goes on with `then`, unless the application
    /// quits.
    void prepare(std::function<void()> work, std::function<void()> then);
    void start(ExportJob job);
    void open(ExportJob job);
    void runEnded(ExportRun::End end);
    void openReview(const QString& journalPath);
    void openSummary(std::unique_ptr<ExportJournal> journal, std::optional<ExportRun::End> end,
                     const QString& reason);
    void summaryClosed();
    void showError(const QString& headline, const QString& details);

    const ExportSetting setting_;
    QWidget& window_;
    std::shared_ptr<ExportRun> run_;
    QPointer<SummaryDialog> summary_;
    std::deque<Task> waiting_;
    bool isStarting_ = false;  ///< An export, whose dialog opens next.
    bool isPreparing_ = false; ///< What opens next.
    bool quits_ = false;
};

} // namespace host::desktop
