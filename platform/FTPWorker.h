#pragma once

#include "platform/FTPTransfer.h"

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace platform {

/// The I/O thread of all FTP streams of the process. libcurl may wait for a server within a call, so no other
/// thread ever calls it. One multi handle keeps the control connection from one transfer to the next.
class FTPWorker {
public:
    /// Starts the thread at the first call; it ends with the process. Throws std::system_error where there is
    /// none yet and the system has none left.
    static FTPWorker& shared();
    /// Tells every client whose transfer has not ended to wake. Any thread.
    static void wakeAll();

    FTPWorker(const FTPWorker&) = delete;
    FTPWorker& operator=(const FTPWorker&) = delete;

    // Any thread; none waits.
    void start(const std::shared_ptr<FTPTransfer>& transfer);
    void resume(const std::shared_ptr<FTPTransfer>& transfer);
    /// Cuts the transfer's connections, even where libcurl waits for one of them, unless it has ended.
    void stop(const std::shared_ptr<FTPTransfer>& transfer);

private:
    using Clock = std::chrono::steady_clock;
    using Transfers = std::vector<std::shared_ptr<FTPTransfer>>;
    struct MultiDeleter {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };
    using Multi = std::unique_ptr<CURLM, MultiDeleter>;

    static Multi makeMulti();
    static std::shared_ptr<CURLSH> makeShare();

    FTPWorker();
    ~FTPWorker() = default;
    /// Cuts everything and waits for the thread.
    void end();

    void wakeClients();
    void order(std::function<void()> work);
    void run();
    bool takeOrders();
    void begin(const std::shared_ptr<FTPTransfer>& transfer);
    void add(const std::shared_ptr<FTPTransfer>& transfer);
    bool remove(const std::shared_ptr<FTPTransfer>& transfer);
    void takeResults();
    std::chrono::milliseconds longestWait() const;
    std::chrono::nanoseconds waitForTraffic();
    void lookAfterTransfers(std::chrono::nanoseconds waited);
    void closeIdleConnections(std::chrono::nanoseconds waited);
    void forget(const std::shared_ptr<FTPTransfer>& transfer);

    FTPSockets sockets_;

    std::mutex mutex_; ///< Guards the following.
    std::deque<std::function<void()>> orders_;
    Transfers started_; ///< Not ended yet.
    bool isOver_ = false;

    // The thread's own; but the multi handle may be woken by others, and is only replaced with the mutex
    // held.
    std::shared_ptr<CURLSH> share_; ///< TLS sessions of connections that may go on.
    Multi multi_;
    Transfers running_;
    std::chrono::nanoseconds idle_{0};
    Clock::time_point lastWaitEnd_;
    bool keepsConnections_ = false;
    std::thread thread_;
};

} // namespace platform
