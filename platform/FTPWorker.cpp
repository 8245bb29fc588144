#include "platform/FTPWorker.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <utility>

namespace platform {

namespace {

/// How long a control connection is kept for a next stream: long enough between two files, short enough not
/// to hold a server's slot after an export.
constexpr std::chrono::seconds kConnectionLifetime{5};
/// More than are ever kept at once: libcurl would say goodbye over the oldest in the name of the transfer
/// that adds one, which then looks as if it ended its own.
constexpr long kMostConnections = 1000;
/// How often the transfers' silence is measured.
constexpr std::chrono::milliseconds kLongestWait{250};
constexpr std::chrono::hours kNothingToDo{1};
/// Where a wait, with the work before it, takes so much longer than the longest one, the whole process slept.
constexpr std::chrono::milliseconds kSuspicion{500};

/// The one that `FTPWorker::shared` has made, if it has.
std::atomic<FTPWorker*> theWorker{nullptr};

/// Signals are the application's; OpenSSL's writes to a socket that the server has left would even end it.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

} // namespace

FTPWorker& FTPWorker::shared() {
    // Never deleted, since streams may outlive it; but its thread must be gone before libraries clean up.
    static FTPWorker* const worker = new FTPWorker;
    static const struct Ending {
        ~Ending() { worker->end(); }
    } ending;
    theWorker = worker;
    return *worker;
}

FTPWorker::Multi FTPWorker::makeMulti() {
    Multi multi(curl_multi_init());
    curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, kMostConnections);
    return multi;
}

std::shared_ptr<CURLSH> FTPWorker::makeShare() {
    std::shared_ptr<CURLSH> share(curl_share_init(), &curl_share_cleanup);
    curl_share_setopt(share.get(), CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    return share;
}

FTPWorker::FTPWorker() {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    share_ = makeShare();
    multi_ = makeMulti();
    thread_ = std::thread([this] { run(); });
}

void FTPWorker::end() {
    sockets_.shutDownForGood();
    {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
        curl_multi_wakeup(multi_.get());
    }
    thread_.join();
}

void FTPWorker::order(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    if (isOver_)
        return;
    orders_.push_back(std::move(work));
    curl_multi_wakeup(multi_.get());
}

void FTPWorker::start(const std::shared_ptr<FTPTransfer>& transfer) {
    {
        const std::lock_guard lock(mutex_);
        started_.push_back(transfer);
    }
    order([this, transfer] { begin(transfer); });
}

void FTPWorker::resume(const std::shared_ptr<FTPTransfer>& transfer) {
    order([transfer] { transfer->resume(); });
}

void FTPWorker::stop(const std::shared_ptr<FTPTransfer>& transfer) {
    transfer->stop();
    sockets_.shutDown(transfer.get());
    forget(transfer);
    order([this, transfer] {
        if (remove(transfer))
            transfer->discard();
    });
}

void FTPWorker::wakeAll() {
    if (FTPWorker* const worker = theWorker)
        worker->wakeClients();
}

void FTPWorker::wakeClients() {
    Transfers all;
    {
        const std::lock_guard lock(mutex_);
        all = started_;
    }
    for (const auto& transfer : all) {
        if (const auto client = transfer->client())
            client->wake();
    }
}

void FTPWorker::forget(const std::shared_ptr<FTPTransfer>& transfer) {
    const std::lock_guard lock(mutex_);
    std::erase(started_, transfer);
}

void FTPWorker::run() {
    pthread_setname_np(pthread_self(), "ftp-streams");
    blockSignals();
    lastWaitEnd_ = Clock::now();
    while (takeOrders()) {
        int running = 0;
        curl_multi_perform(multi_.get(), &running);
        takeResults();
        const auto waited = waitForTraffic();
        lookAfterTransfers(waited);
        closeIdleConnections(waited);
    }
    while (!running_.empty()) {
        const auto transfer = running_.back();
        remove(transfer);
        transfer->discard();
    }
    multi_.reset();
    share_.reset();
}

/// False where the process ends.
bool FTPWorker::takeOrders() {
    std::deque<std::function<void()>> orders;
    {
        const std::lock_guard lock(mutex_);
        if (isOver_)
            return false;
        orders.swap(orders_);
    }
    for (const auto& work : orders)
        work();
    return true;
}

void FTPWorker::begin(const std::shared_ptr<FTPTransfer>& transfer) {
    if (transfer->isStopped())
        return;
    transfer->begin(sockets_, share_);
    add(transfer);
}

void FTPWorker::add(const std::shared_ptr<FTPTransfer>& transfer) {
    if (curl_multi_add_handle(multi_.get(), transfer->handle()) == CURLM_OK) {
        running_.push_back(transfer);
        return;
    }
    forget(transfer);
    transfer->giveUp({kStreamErrorDomainTransport, CURLE_FAILED_INIT});
}

/// Takes it out of libcurl's hands, which closes the connection of a transfer that has not ended. False where
/// it was not there any more.
bool FTPWorker::remove(const std::shared_ptr<FTPTransfer>& transfer) {
    if (std::erase(running_, transfer) == 0)
        return false;
    curl_multi_remove_handle(multi_.get(), transfer->handle());
    if (!transfer->leavesGoodConnection()) {
        sockets_.shutDown(transfer.get());
        // A server forgets the session of a connection that is cut, sooner or later, and may then refuse the
        // data of a new connection that has resumed it.
        share_ = makeShare();
    }
    sockets_.release(transfer.get());
    keepsConnections_ = true;
    idle_ = {};
    return true;
}

void FTPWorker::takeResults() {
    int left = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE)
            continue;
        const CURLcode result = message->data.result;
        FTPTransfer* done = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &done);
        const auto found = std::find_if(running_.begin(), running_.end(),
                                        [done](const auto& transfer) { return transfer.get() == done; });
        // Released before its client hears of it: the close that follows leaves the connection alone.
        const auto transfer = *found;
        remove(transfer);
        if (transfer->canBeginAgain(result)) {
            transfer->beginAgain(share_);
            add(transfer);
            continue;
        }
        forget(transfer);
        transfer->end(result);
    }
}

std::chrono::milliseconds FTPWorker::longestWait() const {
    if (running_.empty() && !keepsConnections_)
        return kNothingToDo;
    // Where a server answers at once, libcurl 7.88 returns before it opens the data connection, and names no
    // socket to wait for.
    bool haveMovedOn = false;
    for (const auto& transfer : running_)
        haveMovedOn |= transfer->hasMovedOn();
    return haveMovedOn ? std::chrono::milliseconds{0} : kLongestWait;
}

/// How long the wait took while the process was awake. It may also have been suspended before, with libcurl
/// at work.
std::chrono::nanoseconds FTPWorker::waitForTraffic() {
    std::vector<curl_waitfd> watched;
    for (const auto& transfer : running_) {
        if (const auto socket = transfer->watchedSocket())
            watched.push_back({*socket, CURL_WAIT_POLLIN, 0});
    }
    const std::chrono::milliseconds longest = longestWait();
    const auto start = Clock::now();
    curl_multi_poll(multi_.get(), watched.data(), static_cast<unsigned>(watched.size()),
                    static_cast<int>(longest.count()), nullptr);
    const auto end = Clock::now();
    const std::chrono::nanoseconds waited = end - start;
    const std::chrono::nanoseconds round = end - std::exchange(lastWaitEnd_, end);
    if (round <= longest + kSuspicion)
        return waited;
    // The process was suspended: no time of the servers' has passed, since what they said was not heard.
    for (const auto& transfer : running_)
        transfer->forgive(std::chrono::ceil<std::chrono::seconds>(round));
    return std::min<std::chrono::nanoseconds>(waited, longest);
}

void FTPWorker::lookAfterTransfers(std::chrono::nanoseconds waited) {
    const Transfers all = running_;
    for (const auto& transfer : all) {
        if (const auto reason = transfer->look(waited)) {
            sockets_.shutDown(transfer.get());
            remove(transfer);
            forget(transfer);
            transfer->giveUp(*reason);
        }
    }
}

void FTPWorker::closeIdleConnections(std::chrono::nanoseconds waited) {
    if (!running_.empty() || !keepsConnections_)
        return;
    idle_ += waited;
    if (idle_ < kConnectionLifetime)
        return;
    // With the sockets shut down, libcurl can't wait for answers to its goodbyes.
    sockets_.shutDownIdle();
    Multi successor = makeMulti();
    {
        const std::lock_guard lock(mutex_);
        multi_.swap(successor);
    }
    share_ = makeShare();
    keepsConnections_ = false;
}

} // namespace platform
