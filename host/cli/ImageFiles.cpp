#include "host/cli/ImageFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace host::cli {

namespace {

QString text(const std::filesystem::path& path) {
    return QString::fromUtf8(path.native().data(), static_cast<qsizetype>(path.native().size()));
}

std::filesystem::path pathOf(const QByteArray& bytes) {
    return std::filesystem::path(bytes.toStdString());
}

} // namespace

std::optional<QString> reasonAgainstReading(const QByteArray& path) {
    struct stat status {};
    if (stat(path.constData(), &status) != 0)
        return QString::fromLocal8Bit(strerrordesc_np(errno));
    if (!S_ISREG(status.st_mode))
        return S_ISDIR(status.st_mode) ? QStringLiteral("it is a folder")
                                       : QStringLiteral("it is not a file");
    // Opened, not asked for its permissions: those are not all that stands against reading.
    const int file = open(path.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return QString::fromLocal8Bit(strerrordesc_np(errno));
    close(file);
    return std::nullopt;
}

QString fileName(const QByteArray& path) {
    return text(pathOf(path).filename());
}

QByteArray absolutePath(const QByteArray& path) {
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(pathOf(path), error);
    const std::filesystem::path folder = std::filesystem::canonical(absolute.parent_path(), error);
    return QByteArray::fromStdString((error ? absolute : folder / absolute.filename()).native());
}

std::optional<QString> folderName(const QByteArray& path) {
    std::error_code ignored;
    const auto folder = std::filesystem::absolute(pathOf(path), ignored).lexically_normal().parent_path();
    if (folder.filename().empty())
        return std::nullopt;
    return text(folder.filename());
}

} // namespace host::cli
