#pragma once

#include "host/core/HostedPlugIn.h"
#include "host/core/PanelDriver.h"
#include "host/desktop/ExportDialog.h"
#include "host/desktop/ExportJob.h"
#include "host/desktop/ShowingAlertPresenter.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <memory>
#include <optional>

namespace host::desktop {

/// One export, from its dialog to its end: makes the plug-in, drives it as a host does, and notes every
/// outcome in the journal. Main thread.
class ExportRun final : public QObject, public ExportClient, public AlertWitness {
    Q_OBJECT

public:
    enum class End {
        NotBegun,    ///< The user has closed the dialog, or the plug-in can't be used.
        Finished,    ///< The service has confirmed.
        Unconfirmed, ///< All was sent that could be, and the finishing request brought no answer.
        Cancelled,
        Failed,
    };

    static std::shared_ptr<ExportRun> make(ExportJob job, const ExportSetting& setting);

    /// Makes the plug-in and opens the dialog over `window`; the journals are reconciled. False, with
    /// `error`, where that fails. Once.
    bool open(QWidget* window, QString& error);
    /// The user gives up: cancels through the plug-in. `ended` follows.
    void cancel();

    /// The dialog is closed, and the plug-in works.
    bool isExporting() const { return stage_ != Stage::Choosing; }
    /// Why it failed, for a person to read.
    const QString& reason() const { return reason_; }
    /// Why outcomes could not be kept on the disk; without a value where all were.
    std::optional<QString> journalFailure() const;
    std::unique_ptr<ExportJournal> takeJournal() { return std::move(journal_); }

Q_SIGNALS:
    void begun();
    void progressed(const hostapi::ExportProgress& progress);
    /// The last signal. No callback of the plug-in runs any more.
    void ended(host::desktop::ExportRun::End end);

private:
    enum class Stage { Choosing, Exporting };

    ExportRun(ExportJob job, ExportSetting setting);

    bool makePlugIn(QString& error);
    bool openDialog(QWidget* window, QString& error);
    bool findService(QString& error);
    std::vector<RecordedImage> offeredImages() const;
    QString heading() const;
    void presetChoices();
    void beginJournal();
    void makeJournal(const ExportChoices& choices);
    void journalMade(std::unique_ptr<ExportJournal> journal, const QString& error);
    void beginImages(const ExportChoices& choices, std::vector<std::size_t> images);
    /// With the journals, beside the main thread, and then on it. The run does not end before.
    void workBeside(std::function<void()> work, std::function<void()> then);

    void breakOff(const QString& reason);
    void cancelThroughPlugIn(End end);
    void conclude(End end);
    void noteEnd();
    void endOnceAllStands();

    // ExportClient
    void exportShouldBegin() override;
    void exportShouldCancel() override;
    void exportShouldFinish() override;
    void imagePrepared(std::uint32_t index, const QString& path) override;
    void imageLeftOut(std::uint32_t index) override;
    void imageUploaded(const QString& path) override;
    void listsCouldNotBeLoaded() override;
    void folderChainEnded(bool complete) override;
    void uploadEnded(bool complete) override;
    void finishingRequestUnanswered() override;
    void imageCaptured(std::uint32_t index, const QDateTime& time) override;
    void imageNotOffered(std::uint32_t index, const QString& reason) override;
    void imageWritten(std::uint32_t index, const QString& path) override;
    void imagesEnded(bool all) override;
    void exportProgressed(const hostapi::ExportProgress& progress) override;
    // AlertWitness
    void alertShown(const hostapi::Alert& alert) override;
    void alertAnswered() override;

    ExportJob job_;
    const ExportSetting setting_;
    std::weak_ptr<ExportRun> self_;

    QString service_; ///< To which the plug-in sends.
    std::unique_ptr<HostedPlugIn> plugIn_;
    std::unique_ptr<ExportDialog> dialog_;
    std::unique_ptr<PanelDriver> panel_;
    std::unique_ptr<ExportJournal> journal_;

    QTimer cancelTimer_; ///< The plug-in has broken off, and should cancel by itself; or it was told to.
    QTimer standTimer_;
    QElapsedTimer sinceEnd_;
    Stage stage_ = Stage::Choosing;
    bool choicesArePreset_ = false;
    int worksBeside_ = 0; ///< How many are under way.
    std::size_t leftOutCount_ = 0;
    int openAlerts_ = 0;
    QString reason_;
    std::optional<End> cancelEnd_; ///< What a cancel that has begun ends with.
    std::optional<End> end_;
};

} // namespace host::desktop
