#include "platform/FTPTransfer.h"

#include "platform/FTPWriteStream.h"
#include "platform/Secret.h"

#include <QtCore/QFile>
#include <QtCore/QStringList>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace platform {

namespace {

/// How long the server may take to say why, once it has dropped a file's data.
constexpr std::chrono::seconds kReasonTime{2};
/// RFC 959, 4.2: replies from here on are negative.
constexpr int kFirstRefusal = 400;
constexpr std::size_t kReplyCodeLength = 3;
constexpr long kNoConnectTimeout = 24 * 60 * 60;

bool isPreliminary(int reply) {
    return reply / 100 == 1;
}
bool isPositiveCompletion(int reply) {
    return reply / 100 == 2;
}

/// The code at the start of a reply's line, if there is one.
std::optional<int> replyCode(std::string_view line) {
    if (line.size() < kReplyCodeLength)
        return std::nullopt;
    int code = 0;
    for (const char digit : line.substr(0, kReplyCodeLength)) {
        if (digit < '0' || digit > '9')
            return std::nullopt;
        code = code * 10 + (digit - '0');
    }
    return code;
}

bool isReadable(int socket, std::chrono::milliseconds within) {
    pollfd waiting{socket, POLLIN, 0};
    return ::poll(&waiting, 1, static_cast<int>(within.count())) > 0;
}

StreamError couldNotConnect(CURL* handle) {
    long cause = 0;
    curl_easy_getinfo(handle, CURLINFO_OS_ERRNO, &cause);
    if (cause == 0)
        return {kStreamErrorDomainTransport, CURLE_COULDNT_CONNECT};
    return {kStreamErrorDomainPOSIX, static_cast<std::int32_t>(cause)};
}

} // namespace

FTPTransfer::FTPTransfer(FTPRequest request, std::weak_ptr<Client> client)
    : request_(std::move(request))
    , client_(std::move(client)) {}

FTPTransfer::~FTPTransfer() {
    wipe(request_.password);
}

void FTPTransfer::begin(FTPSockets& sockets, std::shared_ptr<CURLSH> share) {
    sockets_ = &sockets;
    handle_.reset(curl_easy_init());
    if (!handle_)
        return;
    setUpConnection();
    setUpSecurity();
    useSessions(std::move(share));
    setUpCommands();
}

bool FTPTransfer::canBeginAgain(CURLcode result) const {
    const bool isLost = result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR;
    return isLost && !isStopped() && !hasOpenedConnection_ && !hasHeard_;
}

void FTPTransfer::beginAgain(std::shared_ptr<CURLSH> share) {
    useSessions(std::move(share));
    curl_easy_setopt(handle(), CURLOPT_FRESH_CONNECT, 1L);
    control_ = -1;
    reply_ = 0;
    awaitedReplies_ = 0;
    isEnding_ = false;
    silence_ = {};
}

void FTPTransfer::setUpConnection() {
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_PRIVATE, this);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "ftp");
    curl_easy_setopt(handle, CURLOPT_URL, request_.url.constData());
    // A proxy of the environment's would be handed the file and the password by HTTP.
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    for (const QString& entry : request_.transport.connectTo.split(QLatin1Char(','), Qt::SkipEmptyParts))
        append(connectTo_, entry.trimmed().toUtf8());
    curl_easy_setopt(handle, CURLOPT_CONNECT_TO, connectTo_.get());
    setTimeouts({});
    curl_easy_setopt(handle, CURLOPT_TCP_KEEPALIVE, 1L);
    // A name that is still looked up must not hold up the end of a stream.
    curl_easy_setopt(handle, CURLOPT_QUICK_EXIT, 1L);

    curl_easy_setopt(handle, CURLOPT_OPENSOCKETFUNCTION, &FTPTransfer::openSocket);
    curl_easy_setopt(handle, CURLOPT_OPENSOCKETDATA, this);
    // A kept connection outlives the transfer that made it.
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETFUNCTION, &FTPTransfer::closeSocket);
    curl_easy_setopt(handle, CURLOPT_CLOSESOCKETDATA, sockets_);
    curl_easy_setopt(handle, CURLOPT_PREREQFUNCTION, &FTPTransfer::connected);
    curl_easy_setopt(handle, CURLOPT_PREREQDATA, this);
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, &FTPTransfer::readReply);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(handle, CURLOPT_DEBUGFUNCTION, &FTPTransfer::noteCommand);
    curl_easy_setopt(handle, CURLOPT_DEBUGDATA, this);
    curl_easy_setopt(handle, CURLOPT_VERBOSE, 1L);
}

/// Those that libcurl keeps itself. It counts from the last command, by a clock that a suspended process
/// can't stop.
void FTPTransfer::setTimeouts(std::chrono::seconds forgiven) {
    const auto seconds = static_cast<long>((request_.transport.idleTimeout + forgiven).count());
    curl_easy_setopt(handle(), CURLOPT_CONNECTTIMEOUT, hasHeard_ ? kNoConnectTimeout : seconds);
    curl_easy_setopt(handle(), CURLOPT_SERVER_RESPONSE_TIMEOUT, seconds);
    forgiven_ = forgiven;
}

void FTPTransfer::forgive(std::chrono::seconds suspended) {
    setTimeouts(forgiven_ + suspended);
}

void FTPTransfer::setUpSecurity() {
    CURL* const handle = handle_.get();
    if (request_.userName) {
        curl_easy_setopt(handle, CURLOPT_USERNAME, request_.userName->constData());
        curl_easy_setopt(handle, CURLOPT_PASSWORD,
                         request_.password.isNull() ? "" : request_.password.constData());
    }
    wipe(request_.password);
    if (!isEncrypted())
        return;
    curl_easy_setopt(handle, CURLOPT_USE_SSL, static_cast<long>(CURLUSESSL_ALL));
    curl_easy_setopt(handle, CURLOPT_FTPSSLAUTH, static_cast<long>(CURLFTPAUTH_TLS));
    // With TLS 1.3 uploads get lost where a server demands that data connections reuse a session.
    curl_easy_setopt(handle, CURLOPT_SSLVERSION,
                     static_cast<long>(CURL_SSLVERSION_TLSv1_2) | CURL_SSLVERSION_MAX_TLSv1_2);
    // The system's authorities stay: libcurl also looks into their folder.
    if (!request_.transport.caFile.isEmpty())
        curl_easy_setopt(handle, CURLOPT_CAINFO, QFile::encodeName(request_.transport.caFile).constData());
}

/// Servers may demand that data connections reuse the control connection's session.
void FTPTransfer::useSessions(std::shared_ptr<CURLSH> share) {
    if (!isEncrypted())
        return;
    curl_easy_setopt(handle(), CURLOPT_SHARE, share.get());
    share_ = std::move(share);
}

void FTPTransfer::setUpCommands() {
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_FTP_FILEMETHOD, static_cast<long>(CURLFTPMETHOD_NOCWD));
    curl_easy_setopt(handle, CURLOPT_FTP_SKIP_PASV_IP, 1L);
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);
    if (request_.isFolder) {
        // The asterisk keeps the connection when the folder exists already.
        append(commands_, "*MKD " + request_.path);
        curl_easy_setopt(handle, CURLOPT_QUOTE, commands_.get());
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
    // All that the stream holds at once: each send costs a few looks at the sockets.
    curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, static_cast<long>(FTPWriteStream::kBufferSize));
    curl_easy_setopt(handle, CURLOPT_READFUNCTION, &FTPTransfer::readFile);
    curl_easy_setopt(handle, CURLOPT_READDATA, this);
}

void FTPTransfer::append(List& list, const QByteArray& text) {
    if (curl_slist* const longer = curl_slist_append(list.get(), text.constData())) {
        (void)list.release();
        list.reset(longer);
    }
}

curl_socket_t FTPTransfer::openSocket(void* self, curlsocktype, curl_sockaddr* address) {
    auto* const transfer = static_cast<FTPTransfer*>(self);
    transfer->silence_ = {};
    transfer->hasMovedOn_ = true;
    // Once it is logged in, all that it opens is for data.
    const auto purpose = transfer->control_ < 0 ? FTPSockets::Purpose::Control : FTPSockets::Purpose::Data;
    if (purpose == FTPSockets::Purpose::Control) {
        transfer->hasOpenedConnection_ = true;
        transfer->awaitedReplies_ = 1; // The greeting.
    }
    return transfer->isStopped() ? CURL_SOCKET_BAD : transfer->sockets_->open(transfer, purpose, *address);
}

int FTPTransfer::closeSocket(void* sockets, curl_socket_t socket) {
    return static_cast<FTPSockets*>(sockets)->close(socket);
}

int FTPTransfer::connected(void* self, char*, char*, int remotePort, int localPort) {
    auto* const transfer = static_cast<FTPTransfer*>(self);
    transfer->control_ = transfer->sockets_->take(transfer, static_cast<std::uint16_t>(localPort),
                                                  static_cast<std::uint16_t>(remotePort));
    return transfer->isStopped() ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
}

std::size_t FTPTransfer::readReply(char* line, std::size_t size, std::size_t count, void* self) {
    auto* const transfer = static_cast<FTPTransfer*>(self);
    const std::string_view text(line, size * count);
    transfer->silence_ = {};
    transfer->hasMovedOn_ = true;
    // The server is reached: from here on only time without traffic counts, however long logging in takes.
    if (!std::exchange(transfer->hasHeard_, true))
        transfer->setTimeouts(transfer->forgiven_);
    const auto code = replyCode(text);
    const bool isLastLine = text.size() > kReplyCodeLength && text[kReplyCodeLength] == ' ';
    if (code && isLastLine && transfer->forgiven_ != std::chrono::seconds{})
        transfer->setTimeouts({});
    if (code && isLastLine && !transfer->isEnding_) {
        transfer->reply_ = *code;
        transfer->awaitedReplies_ -= isPreliminary(*code) ? 0 : 1;
    }
    return text.size();
}

int FTPTransfer::noteCommand(CURL*, curl_infotype kind, char* text, std::size_t length, void* self) {
    if (kind != CURLINFO_HEADER_OUT)
        return 0;
    auto* const transfer = static_cast<FTPTransfer*>(self);
    if (std::string_view(text, length).starts_with("QUIT")) {
        // libcurl would wait for the answer to its goodbye, and so would the stream's error.
        transfer->isEnding_ = true;
        transfer->sockets_->shutDown(transfer);
    } else {
        transfer->reply_ = 0;
        ++transfer->awaitedReplies_;
    }
    return 0;
}

std::size_t FTPTransfer::readFile(char* buffer, std::size_t size, std::size_t count, void* self) {
    return static_cast<FTPTransfer*>(self)->nextBytes(buffer, size * count);
}

std::size_t FTPTransfer::nextBytes(char* buffer, std::size_t capacity) {
    const auto stream = client();
    if (!stream)
        return CURL_READFUNC_ABORT;
    if (!std::exchange(isOpened_, true))
        stream->transferOpened();
    if (handedOver_ == request_.length)
        return 0;
    lookForRefusal();
    if (isCutShort_)
        return 0;
    const std::size_t count = stream->takeBytes(buffer, capacity);
    handedOver_ += count;
    isPaused_ = count == 0;
    return isPaused_ ? CURL_READFUNC_PAUSE : count;
}

void FTPTransfer::resume() {
    if (handle_ && std::exchange(isPaused_, false))
        curl_easy_pause(handle(), CURLPAUSE_CONT);
}

bool FTPTransfer::isSending() const {
    return isOpened_ && !isEnding_ && control_ >= 0;
}

bool FTPTransfer::hasSentAll() const {
    curl_off_t sent = 0;
    curl_easy_getinfo(handle(), CURLINFO_SIZE_UPLOAD_T, &sent);
    return static_cast<std::uint64_t>(sent) == request_.length;
}

std::optional<int> FTPTransfer::watchedSocket() const {
    if (!isSending() || isCutShort_ || ignoresControl_ || hasPartOfReply_)
        return std::nullopt;
    return control_;
}

/// Before the file's last byte a server has nothing to say but why it wants no more. libcurl looks only after
/// its last byte, or never where the data connection is reset.
void FTPTransfer::lookForRefusal() {
    if (!isSending() || isCutShort_ || ignoresControl_ || !isReadable(control_, std::chrono::milliseconds{0}))
        return;
    if (isEncrypted()) {
        isCutShort_ = true; // Only libcurl can read it.
        return;
    }
    std::array<char, kReplyCodeLength> start{};
    const auto length = ::recv(control_, start.data(), start.size(), MSG_PEEK | MSG_DONTWAIT);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    const auto code = replyCode({start.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0))});
    if (code.value_or(0) >= kFirstRefusal)
        refusal_ = *code;
    isCutShort_ = length <= 0 || refusal_ != 0;
    hasPartOfReply_ = length > 0 && length < static_cast<ssize_t>(kReplyCodeLength);
    // Anything else is libcurl's to judge, after the file.
    ignoresControl_ = !isCutShort_ && !hasPartOfReply_;
}

std::optional<StreamError> FTPTransfer::look(std::chrono::nanoseconds waited) {
    curl_off_t sent = 0;
    curl_easy_getinfo(handle(), CURLINFO_SIZE_UPLOAD_T, &sent);
    silence_ = std::exchange(sent_, sent) == sent ? silence_ + waited : std::chrono::nanoseconds{0};
    if (silence_ >= request_.transport.idleTimeout) {
        isEnding_ = true;
        return StreamError{kStreamErrorDomainPOSIX, ETIMEDOUT};
    }
    lookForRefusal();
    if (!isCutShort_)
        return std::nullopt;
    resume();
    sinceRefusal_ += waited;
    if (sinceRefusal_ < kReasonTime)
        return std::nullopt;
    // The data connection is stuck: libcurl never comes to read the refusal.
    isEnding_ = true;
    return outcome(CURLE_SEND_ERROR);
}

void FTPTransfer::socketWillClose(int socket) {
    if (socket == control_) {
        waitForReason();
        control_ = -1;
    } else if (isOpened_ && !hasSentAll()) {
        FTPSockets::cutOffWhenClosed(socket);
    }
}

/// Where the data connection was reset, the server may be about to say why, but libcurl has given up and
/// reads no more.
void FTPTransfer::waitForReason() {
    if (!isSending() || isCutShort_ || isStopped() || isEncrypted() || !isPreliminary(reply_) || hasSentAll())
        return;
    if (isReadable(control_,
                   std::min<std::chrono::milliseconds>(kReasonTime, request_.transport.idleTimeout)))
        lookForRefusal();
}

void FTPTransfer::end(CURLcode result) {
    tellEnd(outcome(result));
}

void FTPTransfer::giveUp(const StreamError& error) {
    tellEnd(error);
}

void FTPTransfer::tellEnd(const StreamError& error) {
    discard();
    const auto stream = client();
    if (!stream)
        return;
    if (request_.isFolder && error.domain == kStreamErrorDomainNone)
        stream->transferOpened();
    stream->transferEnded(error);
}

void FTPTransfer::discard() {
    isEnding_ = true;
    handle_.reset();
}

StreamError FTPTransfer::outcome(CURLcode result) const {
    // libcurl takes only 226 and 250 for a file's confirmation.
    const bool hasEnded = result == CURLE_OK || (result == CURLE_PARTIAL_FILE && !request_.isFolder);
    const bool isWhole = request_.isFolder || handedOver_ == request_.length;
    if (hasEnded && isWhole && isPositiveCompletion(reply_))
        return {};
    if (const int refusal = reply_ >= kFirstRefusal ? reply_ : refusal_; refusal != 0)
        return {kStreamErrorDomainFTP, refusal};
    switch (result) {
    case CURLE_COULDNT_RESOLVE_HOST:
        return {kStreamErrorDomainNetDB, HOST_NOT_FOUND};
    case CURLE_OPERATION_TIMEDOUT:
        return {kStreamErrorDomainPOSIX, ETIMEDOUT};
    case CURLE_COULDNT_CONNECT:
        return couldNotConnect(handle());
    case CURLE_OK:
        return {kStreamErrorDomainTransport, CURLE_WEIRD_SERVER_REPLY};
    default:
        return {kStreamErrorDomainTransport, result};
    }
}

} // namespace platform
