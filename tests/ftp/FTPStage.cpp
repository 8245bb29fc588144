#include "tests/ftp/FTPStage.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <algorithm>
#include <iostream>

namespace ftp_tests {

using namespace test_support;

namespace {

/// Nobody listens there: the finishing request ends at once, unanswered.
const QString kNoWebServer = QStringLiteral("www.quillmark.example:443:127.0.0.1:1");

/// The last ones, where a test has failed.
constexpr qsizetype kReportedCommands = 100;

} // namespace

QString serverError(int code) {
    return QStringLiteral(
               "There was an unrecognized error (%1) attempting to communicate with the FTP server. "
               "Please try again.")
        .arg(code);
}

QString readingError(const QString& fileName) {
    return QStringLiteral("There was an error reading %1.").arg(fileName);
}

QString uploadingError(const QString& fileName) {
    return QStringLiteral("There was an error uploading %1.").arg(fileName);
}

FTPStage::FTPStage() {
    Quillmark::setShouldCancelFTPActivity(false);
    server = std::make_unique<ScriptedFTPServer>();
}

void FTPStage::SetUp() {
    useServer(*server);
}

void FTPStage::TearDown() {
    EXPECT_TRUE(waitUntil([&] {
        return host.count(kUploadEnded) == host.count(kUnanswered) + host.count(kFinished);
    })) << "the finishing request must end by itself";
    // What still runs ends by a cancel, as it would for a user.
    plugIn->exportManagerShouldCancelExport();
    if (HasFailure()) {
        const QList<QByteArray> commands = server->commands();
        for (const auto& command : commands.last(std::min(commands.size(), kReportedCommands)))
            std::cerr << command.constData() << '\n';
    }
    const std::weak_ptr<Quillmark> remaining = std::exchange(plugIn, nullptr);
    EXPECT_TRUE(waitUntil([&] { return remaining.expired(); })) << "something still refers to the plug-in";
}

void FTPStage::useServer(const QString& connectTo, int idleTimeout) {
    const bool isEncrypted = certificates.has_value();
    host.useService(connectTo + QStringLiteral(", ") + kNoWebServer,
                    isEncrypted ? certificates->caFile() : QString(),
                    isEncrypted ? QStringLiteral("required") : QString(), idleTimeout);
    plugIn = host.makePlugIn();
    ASSERT_TRUE(plugIn);
    logIn(kUser);
    host.credentials.entries.clear();
    host.credentials.addInternetPassword(plugIn->keychainAttributes(kUser), kPassword, nullptr);
    plugIn->ftpPaths = std::make_shared<std::deque<std::optional<QString>>>();
    plugIn->exportedImagePaths = std::make_shared<QStringList>();
    plugIn->exportFTPFolders = std::make_shared<QStringList>();
}

void FTPStage::useServer(const ScriptedFTPServer& other, int idleTimeout) {
    useServer(other.connectTo(), idleTimeout);
}

void FTPStage::useEncryptedServer(int idleTimeout) {
    certificates.emplace();
    server = std::make_unique<ScriptedFTPServer>(ScriptedFTPServer::Options{
        .certificate = certificates->issue({QStringLiteral("ftp.quillmark.example")}),
        .requireSessionReuse = true});
    useServer(*server, idleTimeout);
}

QString FTPStage::addImage(const QString& fileName, const QByteArray& contents, const QString& folder) {
    const QString path = plugIn->tempDirectoryPath + fileName;
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    EXPECT_EQ(file.write(contents), contents.size());
    plugIn->exportedImagePaths->append(path);
    plugIn->exportFTPFolders->append(folder);
    plugIn->totalBytes += static_cast<std::uint64_t>(contents.size());
    auto& folders = *plugIn->ftpPaths;
    for (const QString& needed : {kEventFolder, folder}) {
        if (std::find(folders.begin(), folders.end(), needed) == folders.end())
            folders.push_back(needed);
    }
    return path;
}

void FTPStage::logIn(const std::optional<QString>& userName) {
    auto details = std::make_shared<Record>();
    if (userName)
        details->setText(kUsernameKey, *userName);
    plugIn->loginDetails.set(details);
}

void FTPStage::startUploads() {
    for (const auto& folder : *plugIn->ftpPaths)
        server->addFolder(folder->chopped(1).toUtf8());
    plugIn->ftpPaths->clear();
    finishHandOver();
}

bool FTPStage::waitForCall(const QString& call) {
    return waitUntil([&] { return host.count(call) > 0; });
}

void FTPStage::runWholeExport() {
    finishHandOver();
    EXPECT_TRUE(waitForCall(kUnanswered)) << qPrintable(host.calls().join(QLatin1Char('\n')));
}

hostapi::ExportProgress FTPStage::progress() const {
    plugIn->lockProgress();
    hostapi::ExportProgress copy = plugIn->exportProgress;
    plugIn->unlockProgress();
    return copy;
}

QByteArray FTPStage::uploaded(const QByteArray& fileName, const QByteArray& folder) const {
    const auto files = server->files();
    const auto found = files.find(folder + '/' + fileName);
    return found == files.end() ? QByteArray() : found->second;
}

void FTPStage::expectAlerts(const std::vector<std::pair<QString, QString>>& messagesAndInfos) const {
    const auto alerts = host.alerts();
    EXPECT_EQ(alerts.size(), messagesAndInfos.size());
    for (std::size_t i = 0; i < std::min(alerts.size(), messagesAndInfos.size()); ++i) {
        EXPECT_FALSE(alerts[i].isSheet);
        EXPECT_EQ(alerts[i].alert.style, hostapi::AlertStyle::Critical);
        EXPECT_EQ(alerts[i].alert.message.toStdString(), messagesAndInfos[i].first.toStdString());
        ASSERT_TRUE(alerts[i].alert.informativeText) << "an empty text is not an absent one";
        EXPECT_EQ(alerts[i].alert.informativeText->toStdString(), messagesAndInfos[i].second.toStdString());
    }
}

} // namespace ftp_tests
