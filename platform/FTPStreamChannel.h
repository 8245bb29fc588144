#pragma once

#include "platform/FTPTransfer.h"
#include "platform/FTPWriteStream.h"
#include "platform/RunLoop.h"

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace platform {

/// What a stream's thread and the I/O thread share: the bytes under way, and the events on their way to the
/// client. All functions: any thread, unless they say otherwise.
class FTPWriteStream::Channel final : public FTPTransfer::Client,
                                      public std::enable_shared_from_this<Channel> {
public:
    explicit Channel(FTPRequest request);
    ~Channel() override;

    /// The stream that the client's callback is given. Once, before anything else.
    void setStream(std::weak_ptr<FTPWriteStream> stream) { stream_ = std::move(stream); }

    void setUserName(const QByteArray& userName);
    void setPassword(const QByteArray& password);
    void setExpectedLength(std::uint64_t bytes);

    void setClient(unsigned eventMask, StreamCallback callback, const StreamClientContext& context);
    void schedule(const std::shared_ptr<RunLoop>& runLoop);
    void unschedule(const std::shared_ptr<RunLoop>& runLoop);

    bool open();
    std::int64_t write(const std::uint8_t* bytes, std::size_t length);
    StreamError error() const;
    void close();

    void transferOpened() override;
    std::size_t takeBytes(char* buffer, std::size_t capacity) override;
    void transferEnded(const StreamError& error) override;
    void wake() override;

private:
    enum class State { Made, Open, Ended };

    // All with the mutex held.
    bool canOpen() const;
    std::uint64_t missing() const;
    std::size_t room() const;
    void offerRoom();
    void enqueue(StreamEvent event);
    void postDelivery();

    /// On the run loop's thread: gives the client its next event.
    void deliver();

    mutable std::mutex mutex_; ///< Guards everything below.
    std::weak_ptr<FTPWriteStream> stream_;
    FTPRequest request_; ///< Until `open`.
    const bool isFolder_;
    std::optional<std::uint64_t> length_;
    State state_ = State::Made;
    bool isClosed_ = false;
    StreamError error_;
    std::shared_ptr<FTPTransfer> transfer_;

    unsigned eventMask_ = 0;
    StreamCallback callback_ = nullptr;
    StreamClientContext context_;
    std::shared_ptr<RunLoop> runLoop_;
    std::deque<StreamEvent> events_;
    bool isDeliveryPosted_ = false;
    bool isCalling_ = false;

    bool isAccepting_ = false;   ///< The server wants the file's bytes.
    bool isRoomOffered_ = false; ///< A can-accept-bytes event is on its way, or not answered yet.
    bool isStarved_ = false;     ///< The I/O thread waits for bytes.
    std::uint64_t accepted_ = 0; ///< Bytes that `write` has taken.
    std::vector<char> buffer_;   ///< A ring: `held_` bytes from `first_` on.
    std::size_t first_ = 0;
    std::size_t held_ = 0;
};

} // namespace platform
