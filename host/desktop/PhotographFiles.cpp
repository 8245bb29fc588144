#include "host/desktop/PhotographFiles.h"

#include "host/core/UniqueNames.h"
#include "host/desktop/BackgroundTask.h"
#include "platform/RunLoop.h"

#include <QtCore/QCollator>
#include <QtCore/QLocale>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>

namespace host::desktop {

namespace fs = std::filesystem;

namespace {

/// Of the formats that a plug-in is offered.
const std::array kExtensions{
    QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("jpe"),
    QStringLiteral("png"),  QStringLiteral("tif"),  QStringLiteral("tiff"),
    QStringLiteral("webp"), QStringLiteral("heic"), QStringLiteral("heif"),
};

QString text(const fs::path& path) {
    return QString::fromUtf8(path.native().data(), static_cast<qsizetype>(path.native().size()));
}

/// Also of a path that ends in a slash.
QString nameOf(const fs::path& folder) {
    return text(folder.has_filename() ? folder.filename() : folder.parent_path().filename());
}

QString extensionOf(const fs::path& path) {
    return text(path.extension()).mid(1).toLower();
}

/// "IMG_9" before "IMG_10", whatever the letters' case.
QCollator nameCollator() {
    // The C locale compares bytes alone.
    QCollator collator(QLocale().language() == QLocale::C ? QLocale(QLocale::English) : QLocale());
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

constexpr qint64 kNanosecondsInASecond = 1'000'000'000;

/// Of a regular file; none where there is none.
std::optional<FileVersion> versionOf(const char* path) {
    struct stat status {};
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode))
        return std::nullopt;
    return FileVersion{status.st_ino, status.st_mtim.tv_sec * kNanosecondsInASecond + status.st_mtim.tv_nsec,
                       status.st_size};
}

class Finder {
public:
    void look(const fs::path& path) {
        std::error_code error;
        const fs::path absolute = fs::absolute(path, error).lexically_normal();
        if (!error && fs::is_directory(absolute, error))
            lookInto(absolute);
        else if (error || !take(absolute))
            ++found_.othersCount;
    }

    FoundPhotographs found() { return std::move(found_); }

private:
    void lookInto(const fs::path& folder) {
        found_.folderNames << nameOf(folder);
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
             entry.increment(error)) {
            // Other systems keep what they know of a picture in a hidden file of its extension.
            if (!entry->path().filename().native().starts_with('.'))
                take(entry->path());
        }
        if (error)
            found_.unreadFolders.push_back({text(folder), QString::fromStdString(error.message())});
    }

    bool take(const fs::path& path) {
        const QString extension = extensionOf(path);
        if (std::find(kExtensions.begin(), kExtensions.end(), extension) == kExtensions.end())
            return false;
        const auto version = versionOf(path.c_str());
        if (!version)
            return false;
        const QString name = text(path.filename());
        found_.photographs.push_back({QByteArray::fromStdString(path.native()), name,
                                      withoutControls(text(path.parent_path().filename())), extension,
                                      *version, QDateTime(), collator_.sortKey(name)});
        return true;
    }

    const QCollator collator_ = nameCollator();
    FoundPhotographs found_;
};

} // namespace

FoundPhotographs findPhotographs(const std::vector<QByteArray>& paths) {
    Finder finder;
    for (const QByteArray& path : paths)
        finder.look(path.toStdString());
    return finder.found();
}

void findPhotographsInBackground(std::vector<QByteArray> paths, std::function<void(FoundPhotographs)> found) {
    runInBackground("find-photos", [paths = std::move(paths), found = std::move(found)] {
        const auto result = std::make_shared<FoundPhotographs>(findPhotographs(paths));
        platform::RunLoop::main()->post([result, found] { found(std::move(*result)); });
    });
}

std::vector<SeenFile> findChanged(std::vector<SeenFile> files) {
    std::erase_if(files, [](SeenFile& file) {
        const auto version = versionOf(file.path.constData());
        if (!version || *version == file.version)
            return true;
        file.version = *version;
        return false;
    });
    return files;
}

void findChangedInBackground(std::vector<SeenFile> files,
                             std::function<void(const std::vector<SeenFile>&)> found) {
    runInBackground("find-changes", [files = std::move(files), found = std::move(found)] {
        const auto changed = std::make_shared<std::vector<SeenFile>>(findChanged(files));
        platform::RunLoop::main()->post([changed, found] { found(*changed); });
    });
}

std::optional<QByteArray> pathOf(const QUrl& url) {
    if (!url.isLocalFile())
        return std::nullopt;
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
}

} // namespace host::desktop
