#include "host/cli/Output.h"

#include "host/cli/PrintableText.h"

#include <unistd.h>

#include <cerrno>

namespace host::cli {

void writeAll(int fileDescriptor, const QByteArray& bytes) {
    for (qsizetype written = 0; written < bytes.size();) {
        const ssize_t count = write(fileDescriptor, bytes.constData() + written,
                                    static_cast<std::size_t>(bytes.size() - written));
        if (count < 0 && errno != EINTR)
            return;
        written += count > 0 ? count : 0;
    }
}

void complain(const QString& message) {
    writeAll(STDERR_FILENO, "quillmark-export: " + printable(message).toUtf8() + '\n');
}

} // namespace host::cli
