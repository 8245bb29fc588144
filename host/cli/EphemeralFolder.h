#pragma once

#include <QtCore/QString>

#include <optional>

namespace host::cli {

/// A temporary folder that nobody else may enter, for all temporary files of this process.
class EphemeralFolder {
public:
    /// Makes the folder and points the process's TMPDIR to it; none, with `error`, where it can't be made.
    /// Before other threads are started.
    static std::optional<EphemeralFolder> make(QString& error);

    /// Removes the folder with all that is in it, also what comes in while it does. Any thread.
    void remove() const;

private:
    explicit EphemeralFolder(std::string path);
    std::string path_;
};

} // namespace host::cli
