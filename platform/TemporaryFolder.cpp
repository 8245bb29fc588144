#include "platform/TemporaryFolder.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace platform {

namespace {

constexpr int kNumberedFolders = 100;
/// Nothing can be made below what is no folder: everything written there fails, as on a full disk.
constexpr QLatin1String kNowhere{"/dev/null"};

/// True for a folder of this user at `path` that no other process holds; it is then held until this process
/// ends. The lock is on the folder itself, which also keeps systemd-tmpfiles(8) from clearing old files in
/// it.
bool hold(const QByteArray& path) {
    const int folder = open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0)
        return false;
    struct stat held {};
    struct stat named {};
    const bool isOurs = fstat(folder, &held) == 0 && held.st_uid == geteuid() &&
                        fchmod(folder, S_IRWXU) == 0 && flock(folder, LOCK_EX | LOCK_NB) == 0;
    // Whoever held it before may have removed it in the meantime.
    const bool isThere = isOurs && lstat(path.constData(), &named) == 0 && named.st_dev == held.st_dev &&
                         named.st_ino == held.st_ino;
    if (!isThere)
        close(folder);
    return isThere;
}

/// Makes and holds a folder below `parent`; its path, empty where none can be made.
QString holdFolderBelow(const QString& parent) {
    const QString name = QStringLiteral("%1/quillmark-%2").arg(parent, QString::number(geteuid()));
    for (int number = 1; number <= kNumberedFolders; ++number) {
        const QString path = number == 1 ? name : name + QLatin1Char('-') + QString::number(number);
        const QByteArray bytes = QFile::encodeName(path);
        mkdir(bytes.constData(), S_IRWXU);
        if (hold(bytes))
            return path;
    }
    // Somebody has taken all the names, or locks don't work there: a name that nobody could foresee.
    QByteArray unique = QFile::encodeName(name + QStringLiteral("-XXXXXX"));
    return mkdtemp(unique.data()) ? QFile::decodeName(unique) : QString();
}

QString holdFolder() {
    // Empty where $TMPDIR names no folder.
    for (const QString& parent : {QDir::tempPath(), QStringLiteral("/tmp")}) {
        const QString folder = parent.isEmpty() ? QString() : holdFolderBelow(parent);
        if (!folder.isEmpty())
            return folder;
    }
    return kNowhere;
}

} // namespace

QString temporaryFolder() {
    static const QString folder = holdFolder();
    return folder;
}

} // namespace platform
