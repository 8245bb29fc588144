#include "host/desktop/PictureLoader.h"

#include "host/desktop/PictureReader.h"
#include "platform/RunLoop.h"

#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>

namespace host::desktop {

using namespace std::chrono_literals;

namespace {

/// Decoding must not take the processor from what the user sees moving, nor from an export.
constexpr int kNiceness = 10;
constexpr qsizetype kBytesPerPixel = 4;
/// What is kept at least where a large picture takes the memory.
constexpr qsizetype kLeastCacheBytes = qsizetype{16} * 1024 * 1024;
/// Until a thread is asked for again where the system had none.
constexpr auto kStartInterval = 1s;

/// Main thread.
std::vector<PictureLoader*>& allLoaders() {
    static std::vector<PictureLoader*> loaders;
    return loaders;
}

} // namespace

/// The threads, and what they have still to do.
class PictureLoader::Workers {
public:
    using Done = std::function<void(int round, const QByteArray& path, int side, const QImage& image)>;

    Workers(int count, Done done)
        : count_(static_cast<std::size_t>(count))
        , done_(std::move(done)) {}

    ~Workers() {
        {
            const std::lock_guard lock(mutex_);
            ends_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_)
            thread.join();
    }

    /// As many as there are to be, or as the system has; false where that is none.
    bool start() {
        try {
            while (threads_.size() < count_)
                threads_.emplace_back([this] { run(); });
        } catch (const std::system_error&) {
        }
        return !threads_.empty();
    }

    /// Paths that are under way in that size are passed over, if they were begun in the same `round`.
    void setQueue(int round, std::deque<QByteArray> paths, int side) {
        {
            const std::lock_guard lock(mutex_);
            if (round != round_)
                underWay_.clear();
            round_ = round;
            std::erase_if(paths, [this, side](const QByteArray& path) {
                return side == side_ && underWay_.contains(path);
            });
            queue_ = std::move(paths);
            side_ = side;
        }
        changed_.notify_all();
    }

private:
    void run() {
        // Of this thread alone: the system keeps a niceness for each.
        setpriority(PRIO_PROCESS, 0, kNiceness);
        std::unique_lock lock(mutex_);
        while (true) {
            changed_.wait(lock, [this] { return ends_ || !queue_.empty(); });
            if (ends_)
                return;
            const QByteArray path = queue_.front();
            const int side = side_;
            const int round = round_;
            queue_.pop_front();
            underWay_.insert(path);
            lock.unlock();
            done_(round, path, side,
                  readPicture(path, side, [] { platform::RunLoop::main()->post([] { makeRoom(); }); }));
            lock.lock();
            underWay_.remove(path);
        }
    }

    const std::size_t count_;
    const Done done_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<QByteArray> queue_;
    QSet<QByteArray> underWay_;
    int side_ = 0;
    int round_ = 0;
    bool ends_ = false;
    std::vector<std::thread> threads_;
};

PictureLoader::PictureLoader(int threads, qsizetype cacheBytes)
    : cache_(cacheBytes)
    , self_(std::make_shared<PictureLoader*>(this)) {
    const std::weak_ptr<PictureLoader*> self = self_;
    workers_ = std::make_unique<Workers>(
        threads, [self](int round, const QByteArray& path, int side, const QImage& image) {
            platform::RunLoop::main()->post([self, round, path, side, image] {
                const auto loader = self.lock();
                if (loader && (*loader)->round_ == round)
                    (*loader)->keep(path, side, image);
            });
        });
    allLoaders().push_back(this);
    startTimer_.setSingleShot(true);
    startTimer_.setInterval(kStartInterval);
    connect(&startTimer_, &QTimer::timeout, this, &PictureLoader::startThreads);
    startThreads();
}

void PictureLoader::startThreads() {
    if (!workers_->start())
        startTimer_.start();
}

PictureLoader::~PictureLoader() {
    std::erase(allLoaders(), this);
}

void PictureLoader::want(const std::vector<QByteArray>& paths, int side) {
    // Counted as if all were square: more would push each other out.
    const qsizetype room = cache_.maxCost() / (kBytesPerPixel * side * side);
    const auto count = std::min(paths.size(), static_cast<std::size_t>(std::max<qsizetype>(room, 1)));
    wantedBytes_ = static_cast<qsizetype>(count) * kBytesPerPixel * side * side;
    std::deque<QByteArray> missing;
    for (std::size_t i = 0; i < count; ++i) {
        if (!isAtHand(paths[i], side))
            missing.push_back(paths[i]);
    }
    workers_->setQueue(round_, std::move(missing), side);
}

bool PictureLoader::isAtHand(const QByteArray& path, int side) const {
    if (unreadable_.contains(path))
        return true;
    const Cached* const cached = cache_.object(path);
    return cached && cached->side >= side;
}

QImage PictureLoader::picture(const QByteArray& path) const {
    const Cached* const cached = cache_.object(path);
    return cached ? cached->image : QImage();
}

void PictureLoader::makeRoom() {
    for (PictureLoader* const loader : allLoaders()) {
        auto& cache = loader->cache_;
        const qsizetype bound = cache.maxCost();
        const qsizetype left = std::max(loader->wantedBytes_, kLeastCacheBytes);
        if (cache.totalCost() <= left)
            continue;
        cache.setMaxCost(left);
        cache.setMaxCost(bound);
        ::malloc_trim(0); // So small as thumbnails are, it would keep them.
    }
}

void PictureLoader::forgetFailures() {
    unreadable_.clear();
}

void PictureLoader::forget(const std::vector<QByteArray>& paths) {
    ++round_;
    for (const QByteArray& path : paths) {
        cache_.remove(path);
        unreadable_.remove(path);
    }
}

void PictureLoader::forgetAll() {
    ++round_;
    cache_.clear();
    unreadable_.clear();
}

void PictureLoader::keep(const QByteArray& path, int side, const QImage& image) {
    if (image.isNull())
        unreadable_.insert(path);
    else
        cache_.insert(path, new Cached{image, side}, image.sizeInBytes());
    Q_EMIT loaded(path, !image.isNull());
}

} // namespace host::desktop
