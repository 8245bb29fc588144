#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <map>
#include <mutex>

namespace platform {

/// The open sockets of the FTP worker and whom each serves. libcurl may wait on one inside a call for as long
/// as a server likes; shutting it down from another thread is what frees that call at once.
class FTPSockets {
public:
    /// One transfer, as the sockets' user. Identity for any thread; its function is called on the I/O thread.
    class User {
    public:
        /// The last moment at which the socket can be used.
        virtual void socketWillClose(int socket) = 0;

    protected:
        ~User() = default;
    };

    enum class Purpose { Control, Data };

    /// For the transfers of one worker: the I/O thread opens and closes, other threads only shut down.
    int open(User* user, Purpose purpose, const curl_sockaddr& address);
    int close(int socket);

    /// The kept control connection between these ports serves `user` from now on; -1 where there is none.
    int take(User* user, std::uint16_t localPort, std::uint16_t remotePort);
    /// `user` has ended well: what is still open is kept for others.
    void release(User* user);

    /// Ends all traffic of `user`, so that a file under way looks cut off to the server. Any thread.
    void shutDown(const User* user);
    /// Ends all traffic, and opens nothing any more. Any thread.
    void shutDownForGood();
    /// Ends what serves nobody.
    void shutDownIdle();

    /// Closing the socket will tell its peer that the bytes were cut off (RST), not that they have ended
    /// (FIN).
    static void cutOffWhenClosed(int socket);

private:
    struct Use {
        User* user; ///< Null for a kept connection.
        Purpose purpose;
    };
    static void shutDown(int socket, Purpose purpose);

    std::mutex mutex_;
    std::map<int, Use> uses_; ///< By socket.
    bool isOver_ = false;
};

} // namespace platform
