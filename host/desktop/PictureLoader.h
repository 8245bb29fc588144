#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QCache>
#include <QtCore/QObject>
#include <QtCore/QSet>
#include <QtCore/QTimer>
#include <QtGui/QImage>

#include <memory>
#include <vector>

namespace host::desktop {

/// Loads pictures in the background and keeps those that were last looked at, within a bound of memory.
///
/// Main thread; the pictures are decoded on threads of its own, of low priority. Where the system has not so
/// many, they are fewer; where it has none left, pictures come once there is one.
class PictureLoader final : public QObject {
    Q_OBJECT

public:
    PictureLoader(int threads, qsizetype cacheBytes);
    /// Waits for the pictures that are being decoded.
    ~PictureLoader() override;

    /// From now on these are wanted, in this order, and no others: what was asked for earlier and has not
    /// begun is dropped. `side`: their largest width and height, in device pixels. What would not fit into
    /// the cache together is left out.
    void want(const std::vector<QByteArray>& paths, int side);

    /// The picture, maybe of another size than was last wanted; null where it is not at hand.
    QImage picture(const QByteArray& path) const;
    bool isUnreadable(const QByteArray& path) const { return unreadable_.contains(path); }
    qsizetype cachedBytes() const { return cache_.totalCost(); }
    /// Gives back, in all loaders, what is not wanted right now, up to a little: a large picture is decoded.
    static void makeRoom();
    /// Forgets which pictures could not be read: what was wrong may have passed.
    void forgetFailures();
    /// Forgets what was read from these files, also what is just being read: they have changed.
    void forget(const std::vector<QByteArray>& paths);
    /// Forgets everything, for the same reason.
    void forgetAll();

Q_SIGNALS:
    /// The picture is at hand, or can't be read.
    void loaded(const QByteArray& path, bool readable);

private:
    struct Cached {
        QImage image;
        int side;
    };
    class Workers;

    void startThreads();
    bool isAtHand(const QByteArray& path, int side) const;
    void keep(const QByteArray& path, int side, const QImage& image);

    mutable QCache<QByteArray, Cached> cache_;
    qsizetype wantedBytes_ = 0;
    QSet<QByteArray> unreadable_;
    int round_ = 0; ///< Counts what was forgotten: what was begun before does not count any more.
    std::shared_ptr<PictureLoader*> self_; ///< For results that are still on their way when it is gone.
    std::unique_ptr<Workers> workers_;
    QTimer startTimer_;
};

} // namespace host::desktop
