#include "platform/FTPStreamChannel.h"

#include "platform/FTPWorker.h"
#include "platform/Secret.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace platform {

namespace {

/// Room that is worth an event: fewer would cost more than the bytes.
constexpr std::size_t kWorthwhileRoom = FTPWriteStream::kBufferSize / 2;

/// A control character would end a command and begin another.
bool hasControlCharacter(const QByteArray& text) {
    return std::any_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7f;
    });
}

} // namespace

FTPWriteStream::Channel::Channel(FTPRequest request)
    : request_(std::move(request))
    , isFolder_(request_.isFolder) {}

FTPWriteStream::Channel::~Channel() {
    wipe(request_.password);
    if (context_.release)
        context_.release(context_.info);
}

void FTPWriteStream::Channel::setUserName(const QByteArray& userName) {
    const std::lock_guard lock(mutex_);
    request_.userName = userName.isEmpty() ? std::nullopt : std::optional(userName);
}

void FTPWriteStream::Channel::setPassword(const QByteArray& password) {
    const std::lock_guard lock(mutex_);
    wipe(request_.password);
    request_.password = password;
}

void FTPWriteStream::Channel::setExpectedLength(std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Made)
        length_ = bytes;
}

void FTPWriteStream::Channel::setClient(unsigned eventMask, StreamCallback callback,
                                        const StreamClientContext& context) {
    StreamClientContext successor = callback ? context : StreamClientContext{};
    if (successor.retain)
        successor.info = successor.retain(successor.info);
    {
        const std::lock_guard lock(mutex_);
        eventMask_ = eventMask;
        callback_ = callback;
        std::swap(context_, successor);
    }
    if (successor.release)
        successor.release(successor.info);
}

void FTPWriteStream::Channel::schedule(const std::shared_ptr<RunLoop>& runLoop) {
    const std::lock_guard lock(mutex_);
    runLoop_ = runLoop;
    // A delivery that was posted to another loop finds that it isn't the one any more.
    isDeliveryPosted_ = false;
    postDelivery();
}

void FTPWriteStream::Channel::unschedule(const std::shared_ptr<RunLoop>& runLoop) {
    const std::lock_guard lock(mutex_);
    if (runLoop_ == runLoop)
        runLoop_.reset();
}

bool FTPWriteStream::Channel::canOpen() const {
    return state_ == State::Made && !isClosed_ && (length_ || isFolder_) &&
           !hasControlCharacter(request_.userName.value_or(QByteArray())) &&
           !hasControlCharacter(request_.password);
}

bool FTPWriteStream::Channel::open() {
    std::shared_ptr<FTPTransfer> transfer;
    {
        const std::lock_guard lock(mutex_);
        if (!canOpen()) {
            error_ = {kStreamErrorDomainPOSIX, EINVAL};
            return false;
        }
        state_ = State::Open;
        request_.length = length_.value_or(0);
        transfer_ = std::make_shared<FTPTransfer>(std::exchange(request_, {}), weak_from_this());
        transfer = transfer_;
    }
    try {
        FTPWorker::shared().start(transfer);
        return true;
    } catch (const std::system_error& failure) {
        const std::lock_guard lock(mutex_);
        state_ = State::Ended;
        error_ = {kStreamErrorDomainPOSIX, failure.code().value()};
        return false;
    }
}

/// Bytes of the file that `write` has not taken yet.
std::uint64_t FTPWriteStream::Channel::missing() const {
    return length_.value_or(0) - accepted_;
}

std::size_t FTPWriteStream::Channel::room() const {
    return std::min<std::uint64_t>(buffer_.size() - held_, missing());
}

std::int64_t FTPWriteStream::Channel::write(const std::uint8_t* bytes, std::size_t length) {
    std::shared_ptr<FTPTransfer> starved;
    std::size_t count = 0;
    {
        const std::lock_guard lock(mutex_);
        if (!isAccepting_ || isClosed_ || error_.domain != kStreamErrorDomainNone)
            return -1;
        count = std::min(length, room());
        const std::size_t end = (first_ + held_) % std::max<std::size_t>(buffer_.size(), 1);
        const std::size_t upToWrap = std::min(count, buffer_.size() - end);
        std::copy_n(bytes, upToWrap, buffer_.begin() + static_cast<std::ptrdiff_t>(end));
        std::copy_n(bytes + upToWrap, count - upToWrap, buffer_.begin());
        held_ += count;
        accepted_ += count;
        isRoomOffered_ = false;
        offerRoom();
        if (count > 0 && std::exchange(isStarved_, false))
            starved = transfer_;
    }
    if (starved)
        FTPWorker::shared().resume(starved);
    return static_cast<std::int64_t>(count);
}

std::size_t FTPWriteStream::Channel::takeBytes(char* buffer, std::size_t capacity) {
    const std::lock_guard lock(mutex_);
    const std::size_t count = std::min(capacity, held_);
    const std::size_t upToWrap = std::min(count, buffer_.size() - first_);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(first_), upToWrap, buffer);
    std::copy_n(buffer_.begin(), count - upToWrap, buffer + upToWrap);
    held_ -= count;
    first_ = held_ == 0 ? 0 : (first_ + count) % buffer_.size();
    isStarved_ = count == 0;
    offerRoom();
    return count;
}

void FTPWriteStream::Channel::offerRoom() {
    if (isRoomOffered_ || missing() == 0 || room() < std::min<std::uint64_t>(kWorthwhileRoom, missing()))
        return;
    isRoomOffered_ = true;
    enqueue(kStreamEventCanAcceptBytes);
}

void FTPWriteStream::Channel::transferOpened() {
    const std::lock_guard lock(mutex_);
    enqueue(kStreamEventOpenCompleted);
    if (isFolder_)
        return;
    isAccepting_ = true;
    buffer_.resize(std::min<std::uint64_t>(kBufferSize, missing()));
    offerRoom();
}

void FTPWriteStream::Channel::transferEnded(const StreamError& error) {
    const std::lock_guard lock(mutex_);
    state_ = State::Ended;
    error_ = error;
    if (error.domain != kStreamErrorDomainNone) {
        events_.clear();
        enqueue(kStreamEventErrorOccurred);
    } else {
        enqueue(isFolder_ ? kStreamEventEndEncountered : kStreamEventCanAcceptBytes);
    }
}

void FTPWriteStream::Channel::wake() {
    const std::lock_guard lock(mutex_);
    if (state_ == State::Open)
        enqueue(kStreamEventHasBytesAvailable);
}

StreamError FTPWriteStream::Channel::error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

void FTPWriteStream::Channel::close() {
    std::shared_ptr<FTPTransfer> unfinished;
    {
        const std::lock_guard lock(mutex_);
        isClosed_ = true;
        events_.clear();
        if (state_ == State::Open)
            unfinished = std::exchange(transfer_, nullptr);
        state_ = State::Ended;
    }
    if (unfinished)
        FTPWorker::shared().stop(unfinished);
}

void FTPWriteStream::Channel::enqueue(StreamEvent event) {
    if (isClosed_ || std::find(events_.begin(), events_.end(), event) != events_.end())
        return;
    events_.push_back(event);
    postDelivery();
}

void FTPWriteStream::Channel::postDelivery() {
    // During a callback nothing is posted: an alert inside it runs the loop.
    if (events_.empty() || !runLoop_ || isCalling_ || std::exchange(isDeliveryPosted_, true))
        return;
    runLoop_->post([self = shared_from_this()] { self->deliver(); });
}

void FTPWriteStream::Channel::deliver() {
    // Keeps the stream, also where its owner lets go of it within the callback.
    const auto stream = stream_.lock();
    std::unique_lock lock(mutex_);
    if (!stream || isCalling_ || events_.empty() || !runLoop_ || !runLoop_->isCurrent())
        return;
    isDeliveryPosted_ = false;
    const StreamEvent event = events_.front();
    events_.pop_front();
    if (const auto callback = callback_; callback && (eventMask_ & event) != 0) {
        void* const info = context_.info;
        isCalling_ = true;
        lock.unlock();
        callback(stream.get(), event, info);
        lock.lock();
        isCalling_ = false;
    }
    postDelivery();
}

} // namespace platform
