#include "host/core/JournalFile.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace host {

namespace {

/// More than any export needs: a file as long as that is none of ours.
constexpr qint64 kLongestFile = 256LL * 1024 * 1024;
constexpr mode_t kOwnerOnly = S_IRUSR | S_IWUSR;

QString text(int error) {
    return QString::fromLocal8Bit(strerrordesc_np(error));
}

QString unfinishedPath(const QString& path) {
    const QFileInfo info(path);
    return info.path() + QLatin1Char('/') + kUnfinishedFilePrefix + info.fileName();
}

/// 0, or the error.
int writeAt(int descriptor, const QByteArray& bytes, qint64 offset) {
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = pwrite(descriptor, bytes.constData() + written,
                                     static_cast<std::size_t>(bytes.size() - written), offset + written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return count < 0 ? errno : EIO;
        written += count;
    }
    return 0;
}

/// A name is on the disk only when its folder is. Where the file system can't force folders, nobody can do
/// more.
int forceFolderOf(const QString& path) {
    const int folder =
        ::open(QFile::encodeName(QFileInfo(path).path()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return errno;
    const int error = fsync(folder) == 0 ? 0 : errno;
    close(folder);
    return error == EINVAL || error == EOPNOTSUPP ? 0 : error;
}

/// Not every file system can keep room; then the lines find their place or not, as they come.
void keepRoom(int descriptor, qint64 offset, qint64 length) {
    fallocate(descriptor, FALLOC_FL_KEEP_SIZE, offset, std::max<qint64>(length, 1));
}

/// Opens one of the user's regular files; -1 and `error` where it is none.
int openOwn(const QString& path, int mode, QString& error) {
    // Not blocking: a name may stand for a pipe that nobody reads.
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), mode | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (descriptor < 0) {
        error = text(errno);
        return -1;
    }
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid() &&
        status.st_size <= kLongestFile)
        return descriptor;
    error = QStringLiteral("it is no journal of this user");
    close(descriptor);
    return -1;
}

/// A lock of this open file, not of the process: a second one in the same process stands against it too.
struct flock wholeFileLock() {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    return lock;
}

/// False where somebody else holds the file. Where file locks don't work at all, nobody does.
bool hold(int descriptor) {
    struct flock lock = wholeFileLock();
    return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

bool isHeldByAnother(int descriptor) {
    struct flock lock = wholeFileLock();
    return fcntl(descriptor, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

/// Whoever held the file before may have removed it in the meantime.
bool hasName(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) == 0 && status.st_nlink > 0;
}

std::optional<QByteArray> readAll(int descriptor, QString& error) {
    QByteArray contents;
    std::array<char, 64 * 1024> block{};
    while (true) {
        const ssize_t count = pread(descriptor, block.data(), block.size(), contents.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            error = text(errno);
            return std::nullopt;
        }
        if (count == 0 || contents.size() > kLongestFile)
            return contents;
        contents.append(block.data(), count);
    }
}

} // namespace

std::unique_ptr<JournalFile> JournalFile::create(const QString& path, const QByteArray& contents,
                                                 qint64 expectedGrowth, QString& error) {
    QByteArray name = QFile::encodeName(unfinishedPath(path));
    const int descriptor =
        ::open(name.constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnly);
    if (descriptor < 0) {
        error = text(errno);
        return nullptr;
    }
    // Held before it gets its name, so that nobody ever finds it without its holder.
    hold(descriptor);
    int failed = writeAt(descriptor, contents, 0);
    if (!failed)
        keepRoom(descriptor, contents.size(), expectedGrowth);
    if (!failed && fsync(descriptor) != 0)
        failed = errno;
    const QByteArray finished = QFile::encodeName(path);
    if (!failed && ::rename(name.constData(), finished.constData()) != 0)
        failed = errno;
    if (!failed) {
        name = finished;
        failed = forceFolderOf(path);
    }
    if (failed) {
        unlink(name.constData());
        close(descriptor);
        error = text(failed);
        return nullptr;
    }
    return std::unique_ptr<JournalFile>(new JournalFile(path, descriptor, contents.size()));
}

std::unique_ptr<JournalFile> JournalFile::open(const QString& path, QByteArray& contents, QString& error) {
    const int descriptor = openOwn(path, O_RDWR, error);
    if (descriptor < 0)
        return nullptr;
    std::optional<QByteArray> read;
    if (!hold(descriptor))
        error = QStringLiteral("it belongs to an export that is running");
    else if (!hasName(descriptor))
        error = text(ENOENT);
    else
        read = readAll(descriptor, error);
    if (!read) {
        close(descriptor);
        return nullptr;
    }
    contents = *read;
    return std::unique_ptr<JournalFile>(new JournalFile(path, descriptor, contents.size()));
}

JournalFile::JournalFile(QString path, int descriptor, qint64 length)
    : path_(std::move(path))
    , descriptor_(descriptor)
    , length_(length) {
    try {
        forcing_ = std::thread([this] { forceInBackground(); });
    } catch (const std::system_error&) {
        // Lines are forced as they come, then.
    }
}

JournalFile::~JournalFile() {
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
    }
    wanted_.notify_one();
    if (forcing_.joinable())
        forcing_.join();
    close(descriptor_);
}

bool JournalFile::cutTo(qint64 length, qint64 expectedGrowth, QString& error) {
    if (length == length_)
        return true;
    // On the disk before a line is: after a power cut, none may stand in front of what was cut off.
    if (ftruncate(descriptor_, length) != 0 || fdatasync(descriptor_) != 0) {
        error = text(errno);
        return false;
    }
    length_ = length;
    keepRoom(descriptor_, length, expectedGrowth);
    return true;
}

void JournalFile::append(const QByteArray& line, Durability durability) {
    unwritten_ += line;
    // Always at the same place: what a full disk has let through of a line is written over.
    if (const int error = writeAt(descriptor_, unwritten_, length_)) {
        [[maybe_unused]] const int ignored = ftruncate(descriptor_, length_);
        writeFailure_ = text(error);
        return;
    }
    length_ += unwritten_.size();
    unwritten_.clear();
    if (durability == Durability::Now || (durability == Durability::Soon && !forcing_.joinable())) {
        if (force())
            writeFailure_.reset();
    } else if (durability == Durability::Soon) {
        {
            const std::lock_guard lock(mutex_);
            forceIsWanted_ = true;
        }
        wanted_.notify_one();
    }
}

void JournalFile::forceInBackground() {
    pthread_setname_np(pthread_self(), "journal");
    std::unique_lock lock(mutex_);
    while (true) {
        wanted_.wait(lock, [this] { return forceIsWanted_ || ends_; });
        if (!forceIsWanted_)
            return;
        forceIsWanted_ = false;
        lock.unlock();
        force();
        lock.lock();
    }
}

bool JournalFile::force() {
    // One after the other: of two at once, the system tells only one what failed.
    const std::lock_guard forceLock(forceMutex_);
    if (fdatasync(descriptor_) == 0)
        return true;
    const int error = errno;
    const std::lock_guard lock(mutex_);
    if (!forceFailure_)
        forceFailure_ = text(error);
    return false;
}

std::optional<QString> JournalFile::failure() const {
    const std::lock_guard lock(mutex_);
    return forceFailure_ ? forceFailure_ : writeFailure_;
}

bool JournalFile::remove() {
    return QFile::remove(path_) && forceFolderOf(path_) == 0;
}

std::optional<QByteArray> readJournalFile(const QString& path, bool& isHeld, QString& error) {
    const int descriptor = openOwn(path, O_RDONLY, error);
    if (descriptor < 0)
        return std::nullopt;
    isHeld = isHeldByAnother(descriptor);
    auto contents = readAll(descriptor, error);
    close(descriptor);
    return contents;
}

} // namespace host
