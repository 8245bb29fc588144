#pragma once

#include "platform/FTPSockets.h"
#include "platform/FTPWriteStream.h"

#include <QtCore/QByteArray>

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace platform {

/// What a stream wants of a server.
struct FTPRequest {
    QByteArray url;  ///< Canonical and percent-escaped; for a folder that of the login folder.
    QByteArray path; ///< UTF-8, counted from the login folder.
    bool isFolder = false;
    std::optional<QByteArray> userName; ///< Without one the login is anonymous.
    QByteArray password;                ///< Wiped as soon as libcurl has it.
    std::uint64_t length = 0;           ///< Of the file.
    Transport transport;
};

/// One folder made or one file sent over a libcurl handle. Made and stopped on any thread; all else happens
/// on the worker's I/O thread.
class FTPTransfer final : public FTPSockets::User {
public:
    /// The stream behind a transfer; called on the I/O thread.
    class Client {
    public:
        virtual ~Client() = default;
        /// The server wants the file's bytes, or has made the folder.
        virtual void transferOpened() = 0;
        /// The next bytes of the file, at most `capacity`; 0 where there are none yet. Then
        /// `FTPWorker::resume` must follow when there are.
        virtual std::size_t takeBytes(char* buffer, std::size_t capacity) = 0;
        /// The last call. `error` is none where the server has confirmed.
        virtual void transferEnded(const StreamError& error) = 0;
        /// `FTPWriteStream::wakeOpenStreams` was called. Any thread.
        virtual void wake() = 0;
    };

    FTPTransfer(FTPRequest request, std::weak_ptr<Client> client);
    ~FTPTransfer();
    FTPTransfer(const FTPTransfer&) = delete;
    FTPTransfer& operator=(const FTPTransfer&) = delete;

    std::shared_ptr<Client> client() const { return client_.lock(); }

    /// Opens no further sockets. Any thread.
    void stop() { isStopped_ = true; }
    bool isStopped() const { return isStopped_; }

    /// Makes the handle, for a multi handle of the caller's; none where there is no memory for it. `share`
    /// holds TLS sessions.
    void begin(FTPSockets& sockets, std::shared_ptr<CURLSH> share);
    CURL* handle() const { return handle_.get(); }
    /// True where a kept connection turns out to be lost before the server has answered anything: nothing has
    /// happened then, and a new connection may do it.
    bool canBeginAgain(CURLcode result) const;
    /// Prepares the same handle for that.
    void beginAgain(std::shared_ptr<CURLSH> share);
    /// False where the connection should serve nobody any more: a server that refused a file midway may still
    /// hold on to its data connection, and answer nothing until that ends; and what is still to be answered
    /// would be taken for the answer to the next command.
    bool leavesGoodConnection() const { return !isCutShort_ && awaitedReplies_ == 0; }
    /// Goes on after `takeBytes` had nothing.
    void resume();
    /// True where a command, a reply or a socket has come since the last call: libcurl may then have a next
    /// step to take that no socket will wake it for.
    bool hasMovedOn() { return std::exchange(hasMovedOn_, false); }

    /// The control socket, where a refusal may come while the file's bytes are sent; none outside that time.
    std::optional<int> watchedSocket() const;
    /// Looks after what libcurl leaves unwatched, after the I/O thread has waited so long: the reason for
    /// which it must be given up, if there is one.
    std::optional<StreamError> look(std::chrono::nanoseconds waited);

    /// The process was suspended for so long, which is no silence of the server's.
    void forgive(std::chrono::seconds suspended);

    // The last calls, one of them, when the handle has left its multi handle.
    /// Takes libcurl's result, and tells the client.
    void end(CURLcode result);
    /// Ends it for a reason of our own, and tells the client.
    void giveUp(const StreamError& error);
    /// Ends it for nobody.
    void discard();

private:
    struct HandleDeleter {
        void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    };
    struct ListDeleter {
        void operator()(curl_slist* list) const { curl_slist_free_all(list); }
    };
    using List = std::unique_ptr<curl_slist, ListDeleter>;

    void setUpConnection();
    void setTimeouts(std::chrono::seconds forgiven);
    void setUpSecurity();
    void useSessions(std::shared_ptr<CURLSH> share);
    void setUpCommands();
    static void append(List& list, const QByteArray& text);

    static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int closeSocket(void* sockets, curl_socket_t socket);
    static int connected(void* self, char* remoteAddress, char* localAddress, int remotePort, int localPort);
    static std::size_t readFile(char* buffer, std::size_t size, std::size_t count, void* self);
    static std::size_t readReply(char* line, std::size_t size, std::size_t count, void* self);
    static int noteCommand(CURL* handle, curl_infotype kind, char* text, std::size_t length, void* self);

    std::size_t nextBytes(char* buffer, std::size_t capacity);
    void lookForRefusal();
    void socketWillClose(int socket) override;
    void waitForReason();
    bool isSending() const;
    bool hasSentAll() const;
    void tellEnd(const StreamError& error);
    bool isEncrypted() const { return request_.transport.ftpSecurity == FTPSecurity::Required; }
    StreamError outcome(CURLcode result) const;

    FTPRequest request_;
    const std::weak_ptr<Client> client_;
    std::atomic<bool> isStopped_{false};
    FTPSockets* sockets_ = nullptr;
    std::shared_ptr<CURLSH> share_; ///< Must outlive the handle.
    List connectTo_;
    List commands_;
    std::unique_ptr<CURL, HandleDeleter> handle_;

    int control_ = -1;                 ///< The control socket, once it is logged in.
    int reply_ = 0;                    ///< The last final reply to the last command; 0 before it came.
    int awaitedReplies_ = 0;           ///< Final ones that the server still owes.
    int refusal_ = 0;                  ///< A refusal read ahead of libcurl; 0 for none.
    bool hasOpenedConnection_ = false; ///< It uses no kept one.
    bool hasHeard_ = false;            ///< The server has answered.
    bool isOpened_ = false;            ///< The client was told.
    bool isPaused_ = false;
    bool hasMovedOn_ = false; ///< Since the worker last asked.
    bool isCutShort_ =
        false; ///< The file's bytes end early, so that libcurl reads why the server wants no more.
    bool isEnding_ = false;
    bool hasPartOfReply_ = false;  ///< Too little of a reply came to judge it: looked at now and then.
    bool ignoresControl_ = false;  ///< It holds no refusal.
    std::uint64_t handedOver_ = 0; ///< Bytes of the file that libcurl has.
    curl_off_t sent_ = 0;          ///< Bytes of the file that the system has.
    std::chrono::nanoseconds silence_{0};
    std::chrono::nanoseconds sinceRefusal_{0};
    std::chrono::seconds forgiven_{0}; ///< Of the wait for the reply to the last command.
};

} // namespace platform
