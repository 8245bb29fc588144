#pragma once

#include "host/desktop/Photograph.h"

#include <QtCore/QUrl>

#include <functional>
#include <optional>
#include <vector>

namespace host::desktop {

/// A folder that could not be read, or not to its end.
struct UnreadFolder {
    QString path;
    QString error;
};

/// What a look at some files and folders has found.
struct FoundPhotographs {
    std::vector<Photograph> photographs;
    std::size_t othersCount = 0; ///< Named files that are no pictures, or not there.
    std::vector<UnreadFolder> unreadFolders;
    QStringList folderNames; ///< Of the folders that were looked into.
};

/// The photographs among `paths`: a file stands for itself, a folder for the pictures that lie directly in
/// it and are not hidden. Any thread.
FoundPhotographs findPhotographs(const std::vector<QByteArray>& paths);

/// The same on a thread of its own; `found` is called on the main thread.
void findPhotographsInBackground(std::vector<QByteArray> paths, std::function<void(FoundPhotographs)> found);

/// A file, and what it was when it was last looked at.
struct SeenFile {
    QByteArray path;
    FileVersion version;
};

/// Those of the files that have changed since, as they are now; what is gone is not among them. Any thread.
std::vector<SeenFile> findChanged(std::vector<SeenFile> files);

/// The same on a thread of its own; `found` is called on the main thread, also where there is none.
void findChangedInBackground(std::vector<SeenFile> files,
                             std::function<void(const std::vector<SeenFile>&)> found);

/// The path of a local file's URL, byte by byte; none for any other URL.
std::optional<QByteArray> pathOf(const QUrl& url);

} // namespace host::desktop
