#include "tests/support/FTPConversation.h"

#include <poll.h>

#include <algorithm>
#include <utility>

namespace test_support {

namespace {

constexpr std::size_t kLineRead = 4096;
constexpr std::chrono::milliseconds kPieceGap{1};
constexpr qsizetype kMostWireBytes = 8 * 1024 * 1024;
/// Small, so that a slow server's client soon has to wait.
constexpr int kSlowReceiveBuffer = 8 * 1024;

bool isPositive(const QByteArray& reply) {
    return !reply.isEmpty() && reply[0] >= '1' && reply[0] <= '3';
}

/// Paths are counted from the login folder, which is the root.
QByteArray normalized(QByteArray path) {
    while (path.startsWith('/'))
        path.remove(0, 1);
    while (path.endsWith('/'))
        path.chop(1);
    return path;
}

QByteArray parentOf(const QByteArray& path) {
    return path.left(std::max(path.lastIndexOf('/'), qsizetype{0}));
}

} // namespace

bool FTPServerState::pause(std::chrono::milliseconds duration) {
    std::unique_lock lock(mutex);
    return !stopped.wait_for(lock, duration, [this] { return isStopping; });
}

FTPFault FTPServerState::takeFault(const QByteArray& step) {
    const std::lock_guard lock(mutex);
    const int occurrence = ++stepCounts[step];
    const auto& ofStep = faults[step];
    for (const int key : {occurrence, ScriptedFTPServer::kEveryTime}) {
        if (const auto found = ofStep.find(key); found != ofStep.end())
            return found->second;
    }
    return {};
}

std::optional<FTPDataFault> FTPServerState::takeDataFault() {
    const std::lock_guard lock(mutex);
    ++uploadCount;
    for (const int key : {uploadCount, ScriptedFTPServer::kEveryTime}) {
        if (const auto found = dataFaults.find(key); found != dataFaults.end())
            return found->second;
    }
    return std::nullopt;
}

ServerSocket::Tap FTPServerState::tap() {
    return [this](const char* bytes, std::size_t length) {
        const std::lock_guard lock(mutex);
        wire.append(bytes, std::min(static_cast<qsizetype>(length), kMostWireBytes - wire.size()));
    };
}

InterruptibleSocket::InterruptibleSocket(std::shared_ptr<FTPServerState> state,
                                         std::unique_ptr<ServerSocket> socket)
    : state_(std::move(state))
    , socket_(std::move(socket)) {
    if (!socket_)
        return;
    const std::lock_guard lock(state_->mutex);
    state_->sockets.insert(socket_.get());
    if (state_->isStopping)
        socket_->interrupt();
}

InterruptibleSocket& InterruptibleSocket::operator=(InterruptibleSocket&& other) noexcept {
    std::swap(state_, other.state_);
    std::swap(socket_, other.socket_);
    return *this;
}

InterruptibleSocket::~InterruptibleSocket() {
    if (!socket_)
        return;
    const std::lock_guard lock(state_->mutex);
    state_->sockets.erase(socket_.get());
}

FTPConversation::FTPConversation(std::shared_ptr<FTPServerState> state, std::unique_ptr<ServerSocket> control,
                                 int number)
    : state_(std::move(state))
    , number_(number)
    , control_(state_, std::move(control)) {}

FTPConversation::~FTPConversation() {
    const std::lock_guard lock(state_->mutex);
    --state_->openConnections;
}

void FTPConversation::run() {
    play(kFTPGreeting, [] { return QByteArray("220 Ready"); });
    while (!hasEnded_) {
        const auto line = readLine();
        if (!line)
            break;
        obey(*line);
    }
}

void FTPConversation::play(const QByteArray& step, const std::function<QByteArray()>& work) {
    const FTPFault fault = state_->takeFault(step);
    if (!state_->pause(fault.delay))
        hasEnded_ = true;
    if (hasEnded_)
        return;
    if (fault.silent)
        return listenSilently();
    if (fault.dropsData)
        passive_ = {};
    QByteArray answer;
    if (!fault.answer) {
        if (fault.cut == Cut::None)
            answer = work();
    } else {
        answer = *fault.answer;
        if (isPositive(answer))
            work();
    }
    if (fault.inManyLines && !answer.isEmpty())
        answer = answer.left(3) + "-Well,\n let me see:\n\n " + answer.left(3) + " apples\n" + answer;
    if (!fault.answersAhead.isEmpty()) {
        answeredAhead_ = fault.answersAhead;
        answer += '\n' + reply(answeredAhead_, {});
    }
    say(answer, fault.inPieces);
    if (fault.cut != Cut::None) {
        control_->cut(fault.cut);
        hasEnded_ = true;
    }
    if (const auto afterwards = std::exchange(afterwards_, nullptr); afterwards && !hasEnded_)
        afterwards();
}

void FTPConversation::say(const QByteArray& reply, bool inPieces) {
    if (reply.isEmpty())
        return;
    QByteArray text = reply;
    text.replace("\n", "\r\n").append("\r\n");
    if (!inPieces) {
        control_->send(text);
        return;
    }
    for (const char byte : text) {
        if (!control_->send(QByteArray(1, byte)) || !state_->pause(kPieceGap))
            break;
    }
}

std::optional<QByteArray> FTPConversation::readLine() {
    while (!unread_.contains('\n')) {
        const QByteArray more = control_->read(kLineRead);
        if (more.isEmpty())
            return std::nullopt;
        unread_ += more;
    }
    QByteArray line = unread_.left(unread_.indexOf('\n'));
    unread_.remove(0, line.size() + 1);
    if (line.endsWith('\r'))
        line.chop(1);
    const std::lock_guard lock(state_->mutex);
    state_->lines.append({number_, line});
    return line;
}

void FTPConversation::listenSilently() {
    while (readLine()) {
    }
    hasEnded_ = true;
}

void FTPConversation::obey(const QByteArray& line) {
    const auto space = line.indexOf(' ');
    const QByteArray command = (space < 0 ? line : line.left(space)).toUpper();
    const QByteArray argument = space < 0 ? QByteArray() : line.mid(space + 1);
    if (command == std::exchange(answeredAhead_, {}))
        return;
    play(command, [&] { return reply(command, argument); });
}

QByteArray FTPConversation::reply(const QByteArray& command, const QByteArray& argument) {
    if (command == "AUTH" && state_->tls)
        return goOverToTLS();
    if (command == "USER") {
        if (state_->tls && !control_->isEncrypted())
            return "530 TLS first";
        userName_ = argument;
        return "331 Password";
    }
    if (command == "PASS")
        return logIn(argument);
    if (command == "QUIT") {
        hasEnded_ = true;
        return "221 Bye";
    }
    if (command == "PBSZ" && control_->isEncrypted())
        return "200 PBSZ=0";
    if (command == "PROT" && control_->isEncrypted()) {
        isDataPrivate_ = argument == "P";
        return "200 Protected";
    }
    if (!isLoggedIn_)
        return "530 Log in first";
    if (command == "PWD")
        return "257 \"/\"";
    if (command == "TYPE")
        return "200 Type set";
    if (command == "EPSV" || command == "PASV")
        return enterPassiveMode(command == "EPSV");
    if (command == "MKD")
        return makeFolder(normalized(argument));
    if (command == "STOR")
        return beginUpload(normalized(argument));
    return "502 Not implemented";
}

QByteArray FTPConversation::logIn(const QByteArray& password) {
    const auto& options = state_->options;
    isLoggedIn_ =
        options.userName.isEmpty() || (userName_ == options.userName && password == options.password);
    return isLoggedIn_ ? "230 Logged in" : "530 Login incorrect";
}

QByteArray FTPConversation::goOverToTLS() {
    afterwards_ = [this] {
        if (!control_->startTLS(state_->tls.get()))
            hasEnded_ = true;
    };
    return "234 TLS";
}

QByteArray FTPConversation::enterPassiveMode(bool extended) {
    std::optional<int> receiveBuffer;
    QByteArray address;
    {
        const std::lock_guard lock(state_->mutex);
        if (state_->pace.count() > 0)
            receiveBuffer = kSlowReceiveBuffer;
        address = state_->passiveAddress;
    }
    passive_ =
        InterruptibleSocket(state_, ServerSocket::listenOnLoopback(state_->options.ipv6, receiveBuffer));
    const int port = passive_->port();
    if (extended)
        return "229 Extended passive (|||" + QByteArray::number(port) + "|)";
    return "227 Passive (" + address + ',' + QByteArray::number(port / 256) + ',' +
           QByteArray::number(port % 256) + ')';
}

QByteArray FTPConversation::makeFolder(const QByteArray& path) {
    const std::lock_guard lock(state_->mutex);
    auto& folders = state_->folders;
    const QByteArray parent = parentOf(path);
    if (path.isEmpty() || folders.contains(path) || (!parent.isEmpty() && !folders.contains(parent)))
        return "550 Can't make it";
    folders.append(path);
    return "257 \"/" + QByteArray(path).replace('"', "\"\"") + "\" made";
}

QByteArray FTPConversation::beginUpload(const QByteArray& path) {
    if (!passive_)
        return "425 EPSV first";
    if (state_->tls && !isDataPrivate_)
        return "521 PROT P first";
    const QByteArray folder = parentOf(path);
    const std::lock_guard lock(state_->mutex);
    if (!folder.isEmpty() && !state_->folders.contains(folder))
        return "553 No such folder";
    afterwards_ = [this, path] { receive(path); };
    return "150 Send it";
}

void FTPConversation::receive(const QByteArray& path) {
    InterruptibleSocket data = acceptData();
    if (!data || !secure(data))
        return;
    const auto fault = state_->takeDataFault();
    QByteArray contents;
    for (;;) {
        std::unique_lock lock(state_->mutex);
        state_->receivedBytes = static_cast<std::uint64_t>(contents.size());
        const auto pace = state_->pace;
        std::size_t most = state_->pieceSize;
        lock.unlock();
        if (fault) {
            const std::uint64_t taken = static_cast<std::uint64_t>(contents.size());
            if (taken >= fault->afterBytes)
                return playDataFault(*fault, data);
            most = std::min<std::uint64_t>(most, fault->afterBytes - taken);
        }
        if (pace.count() > 0 && !state_->pause(pace))
            return;
        const QByteArray piece = data->read(most);
        if (piece.isEmpty())
            break;
        contents += piece;
    }
    const bool isWhole = data->hasEndedInOrder();
    data = {};
    if (!isWhole)
        return say("426 Cut off");
    play(kFTPClosingReply, [&] {
        const std::lock_guard lock(state_->mutex);
        state_->files[path] = contents;
        return QByteArray("226 Got it");
    });
}

InterruptibleSocket FTPConversation::acceptData() {
    const InterruptibleSocket passive = std::exchange(passive_, {});
    // A client that gives up may never make its data connection.
    pollfd waiting[] = {{passive->descriptor(), POLLIN, 0}, {control_->descriptor(), POLLRDHUP, 0}};
    ::poll(waiting, std::size(waiting), -1);
    if ((waiting[0].revents & POLLIN) == 0)
        return {};
    return InterruptibleSocket(state_, passive->accept(state_->tap()));
}

bool FTPConversation::secure(InterruptibleSocket& data) {
    if (!state_->tls)
        return true;
    if (!data->startTLS(state_->tls.get())) {
        say("522 TLS failed");
        return false;
    }
    if (state_->options.requireSessionReuse && !data->reusesSession()) {
        data = {};
        say("522 Reuse the session");
        return false;
    }
    return true;
}

/// Until the client closes either connection.
void FTPConversation::waitForEnd(const InterruptibleSocket& data) {
    pollfd waiting[] = {{data->descriptor(), POLLRDHUP, 0}, {control_->descriptor(), POLLRDHUP, 0}};
    ::poll(waiting, std::size(waiting), -1);
}

void FTPConversation::playDataFault(const FTPDataFault& fault, InterruptibleSocket& data) {
    switch (fault.then) {
    case FTPDataFault::Then::CutData:
        data->cut(fault.cut);
        state_->pause(fault.pause);
        say(fault.answer);
        break;
    case FTPDataFault::Then::AnswerThenCutData:
        say(fault.answer);
        state_->pause(fault.pause);
        data->cut(fault.cut);
        break;
    case FTPDataFault::Then::DiscardThenAnswer:
        while (!data->read(kLineRead).isEmpty()) {
        }
        say(fault.answer);
        break;
    case FTPDataFault::Then::AnswerThenStall:
        say(fault.answer);
        waitForEnd(data);
        break;
    }
    if (fault.controlCut != Cut::None) {
        control_->cut(fault.controlCut);
        hasEnded_ = true;
    }
}

} // namespace test_support
