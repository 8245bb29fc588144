#include "ftp/FTPStreams.h"

#include "platform/RunLoop.h"
#include "platform/Secret.h"
#include "plugin/Quillmark.h"
#include "plugin/TextFormat.h"

#include <atomic>

namespace {

const QString kURLFormat = QStringLiteral("ftp://%@");
const QString kPortFormat = QStringLiteral(":%@");
const QString kPathFormat = QStringLiteral("/%@");

const QString kServerErrorFormat = QStringLiteral(
    "There was an unrecognized error (%@) attempting to communicate with the FTP server. Please try again.");
const QString kCommunicationError = QStringLiteral("There was an error communicating with your FTP server.");
const QString kPasswordError = QStringLiteral("There was an error reading the password.");

/// One for the whole process: a cancel stops the streams of every plug-in object.
std::atomic<bool> cancelFlag{false};

} // namespace

std::optional<QString> Quillmark::_URLStringForServer(const std::optional<QString>& host,
                                                      const std::optional<QString>& path,
                                                      const std::optional<QString>& port) const {
    static constexpr QLatin1Char kSlash{'/'};
    if (!host)
        return std::nullopt;
    QString text = formattedText(kURLFormat, {host});
    if (port && !port->isEmpty())
        text += formattedText(kPortFormat, {port});
    if (path && !path->isEmpty())
        text += path->startsWith(kSlash) ? *path : formattedText(kPathFormat, {path});
    if (!text.endsWith(kSlash))
        text += kSlash;
    return text;
}

QString Quillmark::_errorTextForDomain(std::int64_t domain, std::int32_t error) const {
    if (domain == platform::kStreamErrorDomainFTP)
        return formattedText(kServerErrorFormat, {QString::number(error)});
    return kCommunicationError;
}

bool Quillmark::shouldCancelFTPActivity() {
    return cancelFlag;
}

void Quillmark::setShouldCancelFTPActivity(bool cancel) {
    cancelFlag = cancel;
    // A stream looks at the flag when an event comes, and none would come from a silent server.
    if (cancel)
        platform::FTPWriteStream::wakeOpenStreams();
}

namespace ftp_streams {

std::shared_ptr<platform::FTPWriteStream> streamForURLText(const Quillmark& plugIn, const QString& urlText) {
    return platform::FTPWriteStream::create(platform::FTPWriteStream::percentEscaped(urlText),
                                            plugIn.environment->configuration.transport);
}

std::optional<QString> userName(const Quillmark& plugIn) {
    const std::shared_ptr<Record> details = plugIn.loginDetails.get();
    auto name = details ? details->text(kUsernameKey) : std::nullopt;
    return name && !name->isEmpty() ? name : std::nullopt;
}

bool setCredentials(Quillmark& plugIn, platform::FTPWriteStream& stream, const QString& userName) {
    stream.setUserName(userName);
    std::optional<QString> password = plugIn.getPasswordfromKeyChain(userName);
    if (!password) {
        runCriticalAlert(plugIn, kPasswordError, noInformativeText());
        return false;
    }
    stream.setPassword(*password);
    platform::wipe(*password);
    return true;
}

Start start(platform::FTPWriteStream& stream, platform::StreamCallback callback, void* record) {
    platform::StreamClientContext context;
    context.info = record;
    if (!stream.setClient(kSampleFTPNetworkEvents, callback, &context))
        return Start::ClientRefused;
    stream.schedule(platform::RunLoop::current());
    if (!stream.open())
        return Start::OpenFailed;
    // A cancel from another thread may have come before there was an open stream to wake.
    if (Quillmark::shouldCancelFTPActivity())
        platform::FTPWriteStream::wakeOpenStreams();
    return Start::Opened;
}

void runCriticalAlert(const Quillmark& plugIn, const QString& message, const QString& informativeText) {
    plugIn.environment->alerts.runModal({hostapi::AlertStyle::Critical, message, informativeText});
}

} // namespace ftp_streams
