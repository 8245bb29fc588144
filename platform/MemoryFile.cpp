#include "platform/MemoryFile.h"

#include <sys/mman.h>
#include <unistd.h>

namespace platform {

namespace {

bool writeWhole(int descriptor, const QByteArray& contents) {
    for (qsizetype done = 0; done < contents.size();) {
        const ssize_t count = ::write(descriptor, contents.constData() + done,
                                      static_cast<std::size_t>(contents.size() - done));
        if (count <= 0)
            return false;
        done += count;
    }
    return true;
}

} // namespace

MemoryFile::MemoryFile(const QByteArray& contents)
    : descriptor_(::memfd_create("contents", MFD_CLOEXEC)) {
    if (descriptor_ >= 0 && !writeWhole(descriptor_, contents)) {
        ::close(descriptor_);
        descriptor_ = -1;
    }
}

MemoryFile::~MemoryFile() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
}

std::string MemoryFile::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_);
}

} // namespace platform
