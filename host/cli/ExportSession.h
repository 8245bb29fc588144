#pragma once

#include "host/cli/Options.h"
#include "host/cli/Outcome.h"
#include "host/cli/PasswordSource.h"
#include "host/cli/Reporter.h"
#include "host/cli/Watchdogs.h"
#include "host/core/ExportJournal.h"
#include "host/core/HostedPlugIn.h"
#include "host/core/PanelDriver.h"
#include "host/core/SentNames.h"

#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace host::cli {

/// What a session needs besides the options.
struct SessionSetting {
    QString bundlePath;
    /// How long nothing may happen before the session gives up.
    std::chrono::milliseconds quietLimit{};
    /// Fetches the password of an account that did not log in by itself.
    std::function<Password(const QString& account)> password;
    /// Where the journal is kept; none is where there is no folder.
    std::optional<QString> journalFolder{};
    /// To which the plug-in sends, by `serviceIdentity`; none where that is not known.
    std::optional<QString> service{};
    /// The earlier export to go on with, if it is to be one. Something of it is left.
    std::shared_ptr<ExportJournal> resumed{};
};

/// One run of the command, from the loading of the plug-in to its outcome: logs in, makes the choices, hands
/// the images over and waits for the plug-in to finish. Main thread.
class ExportSession final : public QObject, public ExportClient, public AlertReader {
    Q_OBJECT

public:
    /// `reporter` must outlive the session.
    static std::shared_ptr<ExportSession> make(const Options& options, SessionSetting setting,
                                               Reporter& reporter);
    ~ExportSession() override;

    /// Loads the plug-in and begins. Once.
    void start();
    /// The user gave up: cancels through the plug-in.
    void interrupt();

Q_SIGNALS:
    /// The session is over: no callback of the plug-in runs any more, but workers of its own may.
    void ended(host::cli::Outcome outcome);

private:
    /// What is waited for, in the order in which it comes.
    enum class Phase { Login, Lists, Beginning, Images, Folders, Upload, Finishing };

    ExportSession(const Options& options, SessionSetting setting, Reporter& reporter);
    static QString waitingFor(Phase phase);

    bool makePlugIn();
    bool openPanel();
    void logIn();
    void panelChanged();
    void listsLoaded();
    void enter(Phase phase);
    void beginJournal();
    /// Images go under the names that they were given; the user is to know what that replaces.
    void complainOfReplaced(const std::vector<RecordedImage>& images, const ExportChoices& choices,
                            const SentNames& sent);
    void leaveOut(std::uint32_t index, const QString& reason);
    void tellPrepared(std::uint32_t index, const QString& path);

    /// Tells what has changed since the last look: the status line, the record, the controls.
    void lookAround();
    /// Before the plug-in's word is taken: false where the session is over already.
    bool listens();

    void cancel(Outcome outcome, std::chrono::milliseconds patience);
    void giveUp();
    void conclude(Outcome outcome, const QString& complaint = {});
    void endJournal();
    void endOnceImagesStand();

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
    // AlertReader
    void alertShown(const hostapi::Alert& alert, AlertModality modality) override;

    const Options options_;
    const SessionSetting setting_;
    Reporter& reporter_;
    Watchdogs watchdogs_;
    QTimer lookTimer_;
    QTimer imagesStandTimer_;

    std::unique_ptr<HostedPlugIn> plugIn_;
    std::unique_ptr<QWidget> window_;
    std::unique_ptr<PanelDriver> panel_;
    std::weak_ptr<ExportSession> self_;

    std::vector<ExportedImage> images_;
    std::shared_ptr<ExportJournal> journal_;
    QString trouble_; ///< What went wrong, in words that say why images are not uploaded.
    std::size_t leftOutCount_ = 0;
    Phase phase_ = Phase::Login;
    QString status_;
    std::optional<Outcome> cancelOutcome_; ///< What a cancel that has begun ends with.
    std::optional<Outcome> outcome_;
};

} // namespace host::cli
