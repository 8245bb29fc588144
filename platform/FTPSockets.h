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
        /// The last moment at which the socket can be read.
        virtual void socketWillClose(int socket) = 0;

    protected:
        ~User() = default;
    };

    /// For the transfers of one worker: the I/O thread opens and closes, other threads only shut down.
    int open(User* user, const curl_sockaddr& address);
    int close(int socket);

    /// The kept control connection between these ports serves `user` from now on; -1 where there is none.
    int take(User* user, std::uint16_t localPort, std::uint16_t remotePort);
    /// `user` has ended well: what is still open is kept for others.
    void release(User* user);

    /// Ends all traffic of `user`. Any thread.
    void shutDown(const User* user);
    /// Ends all traffic, and opens nothing any more. Any thread.
    void shutDownForGood();
    /// Ends what serves nobody.
    void shutDownIdle();

private:
    std::mutex mutex_;
    std::map<int, User*> users_; ///< By socket; null for a kept connection.
    bool isOver_ = false;
};

} // namespace platform
