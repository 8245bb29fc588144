#pragma once

#include <QtCore/QByteArray>

#include <string>

namespace platform {

/// Bytes for a library that reads them by a file's name only: a file without a place on any disk, gone
/// with the object.
class MemoryFile {
public:
    explicit MemoryFile(const QByteArray& contents);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// Names nothing where the file could not be made.
    std::string path() const;

private:
    int descriptor_;
};

} // namespace platform
