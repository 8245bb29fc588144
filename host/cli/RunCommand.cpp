#include "host/cli/RunCommand.h"

#include "host/cli/EphemeralFolder.h"
#include "host/cli/ExportSession.h"
#include "host/cli/Interruption.h"
#include "host/cli/Outcome.h"
#include "host/cli/Output.h"
#include "host/cli/PasswordSource.h"
#include "host/cli/Reporter.h"
#include "host/cli/Resumption.h"
#include "host/core/AccountDefaults.h"
#include "host/core/JournalFolder.h"
#include "host/core/Locations.h"
#include "host/core/PlugInLoader.h"
#include "host/core/Service.h"

#include <QtCore/QFile>
#include <QtCore/QSocketNotifier>
#include <QtWidgets/QApplication>

#include <unistd.h>

#include <csignal>
#include <mutex>
#include <utility>

namespace host::cli {

namespace {

constexpr char kQtPlatformVariable[] = "QT_QPA_PLATFORM";
/// What is added to the service's idle time-out: time for the plug-in to notice by itself.
constexpr std::chrono::seconds kQuietMargin{10};

/// One run, made once and never destroyed: workers of the plug-in may outlast it, so the process ends around
/// it.
class Command {
public:
    explicit Command(const Options& options)
        : options_(options)
        , reporter_(options.json, !options.quiet)
        , interruption_([this] { end(Outcome::Cancelled); }) {}

    [[noreturn]] void run() {
        const QString bundle = findBundle();
        if (options_.ephemeral)
            makeEphemeralFolder();
        if (options_.passwordFile)
            password_ =
                expectedPassword(passwordFromFile(*options_.passwordFile, interruption_.descriptor()));
        runSession(bundle);
    }

private:
    /// Also called on the thread that fetches signals.
    [[noreturn]] void end(Outcome outcome) {
        const std::lock_guard lock(endMutex_);
        if (ephemeralFolder_)
            ephemeralFolder_->remove();
        reporter_.end(outcome);
        _exit(describe(outcome).exitStatus);
    }

    [[noreturn]] void end(Outcome outcome, const QString& complaint) {
        reporter_.complaint(complaint);
        end(outcome);
    }

    QString findBundle() {
        if (options_.plugin) {
            QString named = QFile::decodeName(*options_.plugin);
            if (!isPlugInBundle(named))
                end(Outcome::Usage, QStringLiteral("%1 is not a plug-in's bundle").arg(named));
            return named;
        }
        const auto found = installedOrBuiltBundle();
        if (!found)
            end(Outcome::Failed, QStringLiteral("the plug-in is not installed; use --plugin"));
        return *found;
    }

    void makeEphemeralFolder() {
        QString error;
        if (const std::lock_guard lock(endMutex_); (ephemeralFolder_ = EphemeralFolder::make(error)))
            return;
        end(Outcome::Failed, error);
    }

    /// Ends the command where there is no password.
    QString expectedPassword(Password password) {
        if (std::holds_alternative<Interrupted>(password))
            end(Outcome::Cancelled);
        if (const auto* none = std::get_if<NoPassword>(&password))
            end(Outcome::Usage, none->reason);
        return std::get<QString>(std::move(password));
    }

    SessionSetting sessionSetting(const QString& bundle) {
        SessionSetting setting;
        setting.bundlePath = bundle;
        setting.password = [this](const QString& account) { return password(account); };
        if (!options_.ephemeral)
            setting.journalFolder = userJournalFolder();
        QString error;
        const auto configuration = serviceConfiguration(bundle, error);
        if (configuration)
            setting.service = serviceIdentity(*configuration);
        else if (options_.resume)
            end(Outcome::Failed, error);
        // Else the plug-in tells of a configuration that can't be read, if it needs it.
        setting.quietLimit =
            configuration.value_or(platform::ServiceConfiguration()).transport.idleTimeout + kQuietMargin;
        if (options_.resume)
            setting.resumed = resumption(*setting.service);
        return setting;
    }

    [[noreturn]] void runSession(const QString& bundle) {
        if (qEnvironmentVariableIsEmpty(kQtPlatformVariable))
            qputenv(kQtPlatformVariable, "offscreen");
        // Qt's warnings about its surroundings are none of a script's business.
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
            if (type == QtCriticalMsg || type == QtFatalMsg)
                complain(message);
        });
        static int argumentCount = 1;
        static char program[] = "quillmark-export";
        static char* arguments[] = {program, nullptr};
        auto* const application = new QApplication(argumentCount, arguments);
        QApplication::setQuitOnLastWindowClosed(false);

        auto* const session = new std::shared_ptr<ExportSession>(
            ExportSession::make(options_, sessionSetting(bundle), reporter_));
        QObject::connect(session->get(), &ExportSession::ended, application,
                         [this](Outcome outcome) { end(outcome); });
        auto* const interrupted =
            new QSocketNotifier(interruption_.descriptor(), QSocketNotifier::Read, application);
        QObject::connect(interrupted, &QSocketNotifier::activated, session->get(), [interrupted, session] {
            interrupted->setEnabled(false);
            (*session)->interrupt();
        });
        (*session)->start();
        QApplication::exec();
        end(Outcome::Failed, QStringLiteral("the plug-in has quit the application"));
    }

    /// The export to go on with. Ends the command where there is none, or nothing is left of it.
    std::shared_ptr<ExportJournal> resumption(const QString& service) {
        const auto account = options_.user ? options_.user : rememberedAccount();
        if (!account)
            end(Outcome::Usage, QStringLiteral("no account is remembered; use --user"));
        bool isDamaged = false;
        const auto tellDamaged = [&](const FoundJournal& journal) {
            isDamaged = true;
            reporter_.complaint(
                QStringLiteral("the journal %1 can't be used: %2").arg(journal.path, journal.error));
        };
        auto found = findResumption(userJournalFolder(), service, *account, options_.event, tellDamaged);
        if (const auto* none = std::get_if<NoResumption>(&found))
            end(none->isWrongUsage && !isDamaged ? Outcome::Usage : Outcome::Failed, none->reason);
        auto journal = std::get<std::shared_ptr<ExportJournal>>(std::move(found));
        reporter_.resumption(journal->record());
        if (journal->record().isSettled())
            end(Outcome::Finished);
        return journal;
    }

    Password password(const QString& account) {
        if (password_)
            return std::exchange(password_, std::nullopt).value();
        return passwordFromTerminal(account, interruption_.descriptor());
    }

    const Options options_;
    Reporter reporter_;
    std::mutex endMutex_; ///< Guards the folder, and keeps a second end from beginning.
    std::optional<EphemeralFolder> ephemeralFolder_;
    std::optional<QString> password_;
    Interruption interruption_;
};

} // namespace

void runCommand(const Options& options) {
    // A reader of the output that goes away must not take an export with it.
    signal(SIGPIPE, SIG_IGN);
    (new Command(options))->run();
}

} // namespace host::cli
