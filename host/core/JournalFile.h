#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace host {

/// A file in the making; the rest of its name is that of the finished one.
inline constexpr QLatin1String kUnfinishedFilePrefix{".new-"};

/// A file of lines that only grows, held by a file lock as long as this object lives.
///
/// Forcing it to the disk may take a tenth of a second and more, so most lines are forced by a thread of its
/// own; where the system has none left, by the calling one. One thread at a time.
class JournalFile {
public:
    enum class Durability {
        Eventually, ///< Survives the process, not a power cut.
        Soon,       ///< Forced to the disk by the thread, where there is one.
        Now,        ///< Forced to the disk before the call returns.
    };

    /// Makes the file with these contents, wholly or not at all, and room for `expectedGrowth` bytes more, so
    /// that a disk that fills up does not keep them out. Empty, with `error`, where that fails.
    static std::unique_ptr<JournalFile> create(const QString& path, const QByteArray& contents,
                                               qint64 expectedGrowth, QString& error);
    /// Opens and holds a file; `contents` are all of its bytes. Empty, with `error`, where it is none of the
    /// user's regular files, or is held by another.
    static std::unique_ptr<JournalFile> open(const QString& path, QByteArray& contents, QString& error);
    ~JournalFile();
    JournalFile(const JournalFile&) = delete;
    JournalFile& operator=(const JournalFile&) = delete;

    const QString& path() const { return path_; }

    /// Goes on behind the first `length` bytes: what follows them is damaged, and goes, so that nothing of it
    /// is ever read behind the lines to come. Room is kept for `expectedGrowth` bytes instead. False, with
    /// `error`, where it can't be cut off.
    bool cutTo(qint64 length, qint64 expectedGrowth, QString& error);
    /// A line that can't be written is kept, and written before the next one.
    void append(const QByteArray& line, Durability durability);
    /// Why something is perhaps not on the disk. A failure to write is forgotten once a call of `append` has
    /// written all and forced it; a failure to force never is: the system may have dropped what it was about.
    std::optional<QString> failure() const;
    bool remove();

private:
    JournalFile(QString path, int descriptor, qint64 length);
    void forceInBackground();
    bool force();

    const QString path_;
    const int descriptor_;
    qint64 length_;
    QByteArray unwritten_;
    std::optional<QString> writeFailure_; ///< Of lines that are still unwritten, or not forced yet.

    std::mutex forceMutex_;
    mutable std::mutex mutex_;
    std::condition_variable wanted_;
    bool forceIsWanted_ = false;
    bool ends_ = false;
    std::optional<QString> forceFailure_; ///< The first one.
    std::thread forcing_;                 ///< Not running where the system had none left.
};

/// Reads a journal's file without holding it; `isHeld` where somebody else does. Without a value, and with
/// `error`, as for `JournalFile::open`. Any thread.
std::optional<QByteArray> readJournalFile(const QString& path, bool& isHeld, QString& error);

} // namespace host
