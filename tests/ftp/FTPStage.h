#pragma once

#include "tests/support/RecordingHost.h"
#include "tests/support/ScriptedFTPServer.h"
#include "tests/support/Waiting.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>

/// For the reports of failed expectations.
inline void PrintTo(const QString& text, std::ostream* stream) {
    *stream << '"' << text.toStdString() << '"';
}

namespace ftp_tests {

inline const QString kUser = QStringLiteral("ann");
inline const QByteArray kPassword = "secret";
inline const QString kEventFolder = QStringLiteral("77/");

// What the user reads.
inline const QString kCouldNotConnect = QStringLiteral("Could Not Connect to Your FTP Server.");
inline const QString kCommunicationError =
    QStringLiteral("There was an error communicating with your FTP server.");
inline const QString kPasswordError = QStringLiteral("There was an error reading the password.");
QString serverError(int code);
QString readingError(const QString& fileName);
QString uploadingError(const QString& fileName);

/// A logged-in plug-in whose host has handed over its images, and an FTP server to send them to.
///
/// At its end nothing may refer to the plug-in any more: no record, stream, timer or thread.
class FTPStage : public testing::Test {
protected:
    FTPStage();
    void SetUp() override;
    void TearDown() override;

    /// Makes the plug-in anew, for another service.
    void useServer(const QString& connectTo, int idleTimeout = 60);
    void useServer(const test_support::ScriptedFTPServer& other, int idleTimeout = 60);
    /// Takes a server that demands TLS, and makes the plug-in anew for it.
    void useEncryptedServer(int idleTimeout = 60);

    /// Adds a prepared image to the lists, and its folder where it is new. Its path.
    QString addImage(const QString& fileName, const QByteArray& contents,
                     const QString& folder = QStringLiteral("77/Ceremony/"));
    void logIn(const std::optional<QString>& userName);
    void forgetPassword() { host.credentials.entries.clear(); }

    /// The host hands over, on the main thread.
    void finishHandOver() { plugIn->exportManagerDidFinishExport(); }
    /// The queue of files alone: its folders are there already.
    void startUploads();

    bool waitForCall(const QString& call);
    /// Hands over and waits until all is uploaded and the finishing request has been sent.
    void runWholeExport();
    hostapi::ExportProgress progress() const;
    /// What the server holds under "77/Ceremony/" and the name.
    QByteArray uploaded(const QByteArray& fileName, const QByteArray& folder = "77/Ceremony") const;

    /// Exactly these alerts have been shown, in order: critical, and modal for the application.
    void expectAlerts(const std::vector<std::pair<QString, QString>>& messagesAndInfos) const;
    void expectNoAlert() const { expectAlerts({}); }

    std::optional<test_support::TestCertificates> certificates; ///< Where the server is encrypted.
    test_support::RecordingHost host;
    std::unique_ptr<test_support::ScriptedFTPServer> server;
    std::shared_ptr<Quillmark> plugIn;
};

inline const QString kChainEnded = QStringLiteral("folderChainEnded 1");
inline const QString kChainBroken = QStringLiteral("folderChainEnded 0");
inline const QString kUploadEnded = QStringLiteral("uploadEnded 1");
inline const QString kUploadBroken = QStringLiteral("uploadEnded 0");
inline const QString kCancelled = QStringLiteral("shouldCancelExport");
inline const QString kFinished = QStringLiteral("shouldFinishExport");
inline const QString kUnanswered = QStringLiteral("finishingRequestUnanswered");

} // namespace ftp_tests
