#include "host/core/FileContents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace host {

namespace {

class File {
public:
    /// Never waits for a writer, should a pipe be there instead of a file.
    explicit File(const QByteArray& path)
        : descriptor_(open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~File() {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    int descriptor() const { return descriptor_; }

private:
    const int descriptor_;
};

QString lastSystemError() {
    return QString::fromLocal8Bit(strerrordesc_np(errno));
}

} // namespace

// Read, not mapped: a mapped file that is cut off meanwhile would kill the process.
std::optional<QByteArray> fileContents(const QByteArray& path, QString& error) {
    const File file(path);
    struct stat status {};
    if (file.descriptor() < 0 || fstat(file.descriptor(), &status) != 0) {
        error = lastSystemError();
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        error = QStringLiteral("it is no longer a file");
        return std::nullopt;
    }
    QByteArray bytes(static_cast<qsizetype>(status.st_size), Qt::Uninitialized);
    qsizetype length = 0;
    while (length < bytes.size()) {
        const ssize_t count =
            read(file.descriptor(), bytes.data() + length, static_cast<std::size_t>(bytes.size() - length));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            error = lastSystemError();
            return std::nullopt;
        }
        if (count == 0)
            break;
        length += count;
    }
    bytes.truncate(length);
    return bytes;
}

} // namespace host
