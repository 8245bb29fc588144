#include "platform/FTPWriteStream.h"

#include "platform/FTPStreamChannel.h"
#include "platform/FTPWorker.h"

#include <QtCore/QStringDecoder>
#include <QtCore/QUrl>

#include <algorithm>

namespace platform {

namespace {

constexpr QLatin1String kScheme{"ftp"};
constexpr QLatin1String kSchemeAndSlashes{"ftp://"};
constexpr int kDefaultPort = 21;
constexpr unsigned kAllEvents = kStreamEventOpenCompleted | kStreamEventHasBytesAvailable |
                                kStreamEventCanAcceptBytes | kStreamEventErrorOccurred |
                                kStreamEventEndEncountered;

bool isAllowedComponent(const QString& component) {
    return component != QLatin1String(".") && component != QLatin1String("..") &&
           std::none_of(component.begin(), component.end(),
                        [](QChar character) { return character.category() == QChar::Other_Control; });
}

/// The path behind the host's "/" as plain text; none where it may not be asked of a server.
std::optional<QString> decodedPath(const QUrl& url) {
    const QByteArray escaped = url.path(QUrl::FullyEncoded).toLatin1();
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString path = decoder(QByteArray::fromPercentEncoding(escaped));
    if (decoder.hasError() || !path.startsWith(QLatin1Char('/')))
        return std::nullopt;
    const QStringList components = path.mid(1).split(QLatin1Char('/'));
    if (!std::all_of(components.begin(), components.end(), isAllowedComponent))
        return std::nullopt;
    return path.mid(1);
}

QByteArray loginFolderURL(const QUrl& url) {
    QByteArray host = url.host(QUrl::FullyEncoded).toLatin1();
    if (host.contains(':'))
        host = '[' + host + ']';
    return "ftp://" + host + ':' + QByteArray::number(url.port(kDefaultPort)) + '/';
}

} // namespace

std::shared_ptr<FTPWriteStream> FTPWriteStream::create(const QString& url, const Transport& transport) {
    const QUrl parsed(url, QUrl::StrictMode);
    if (!parsed.isValid() || parsed.scheme() != kScheme || parsed.host().isEmpty() ||
        !parsed.userInfo().isEmpty() || parsed.hasQuery() || parsed.hasFragment())
        return nullptr;
    auto path = decodedPath(parsed);
    if (!path || path->isEmpty())
        return nullptr;

    FTPRequest request;
    request.transport = transport;
    request.url = loginFolderURL(parsed);
    request.isFolder = path->endsWith(QLatin1Char('/'));
    if (request.isFolder)
        path->chop(1);
    else
        request.url += QUrl::toPercentEncoding(*path, "/");
    request.path = path->toUtf8();
    const auto channel = std::make_shared<Channel>(std::move(request));
    std::shared_ptr<FTPWriteStream> stream(new FTPWriteStream(channel));
    channel->setStream(stream);
    return stream;
}

QString FTPWriteStream::percentEscaped(const QString& urlText) {
    const auto pathStart = urlText.indexOf(QLatin1Char('/'), kSchemeAndSlashes.size());
    if (pathStart < 0)
        return urlText;
    return urlText.left(pathStart) +
           QString::fromLatin1(QUrl::toPercentEncoding(urlText.mid(pathStart), QByteArrayLiteral("/")));
}

FTPWriteStream::FTPWriteStream(std::shared_ptr<Channel> channel)
    : channel_(std::move(channel)) {}

FTPWriteStream::~FTPWriteStream() {
    close();
}

void FTPWriteStream::setUserName(const QString& userName) {
    channel_->setUserName(userName.toUtf8());
}

void FTPWriteStream::setPassword(const QString& password) {
    channel_->setPassword(password.toUtf8());
}

void FTPWriteStream::setExpectedLength(std::uint64_t bytes) {
    channel_->setExpectedLength(bytes);
}

bool FTPWriteStream::setClient(unsigned eventMask, StreamCallback callback,
                               const StreamClientContext* context) {
    const StreamClientContext none;
    const StreamClientContext& given = context ? *context : none;
    if ((eventMask & ~kAllEvents) != 0 || given.version != 0)
        return false;
    channel_->setClient(eventMask, callback, given);
    return true;
}

void FTPWriteStream::schedule(const std::shared_ptr<RunLoop>& runLoop) {
    channel_->schedule(runLoop);
}

void FTPWriteStream::unschedule(const std::shared_ptr<RunLoop>& runLoop) {
    channel_->unschedule(runLoop);
}

bool FTPWriteStream::open() {
    return channel_->open();
}

std::int64_t FTPWriteStream::write(const std::uint8_t* bytes, std::size_t length) {
    return channel_->write(bytes, length);
}

StreamError FTPWriteStream::error() const {
    return channel_->error();
}

void FTPWriteStream::close() {
    channel_->close();
}

void FTPWriteStream::wakeOpenStreams() {
    FTPWorker::wakeAll();
}

} // namespace platform
