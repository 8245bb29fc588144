#include "host/cli/EphemeralFolder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace host::cli {

namespace {

constexpr char kTemporaryFolderVariable[] = "TMPDIR";
/// A worker may write one more file between the removal of the others and that of the folder.
constexpr int kRemovals = 5;

} // namespace

std::optional<EphemeralFolder> EphemeralFolder::make(QString& error) {
    std::error_code noFolder;
    std::string path = (std::filesystem::temp_directory_path(noFolder) / "quillmark-XXXXXX").string();
    if (noFolder || !mkdtemp(path.data())) {
        error = QStringLiteral("no temporary folder can be made: ") +
                QString::fromLocal8Bit(noFolder ? noFolder.message().c_str() : strerrordesc_np(errno));
        return std::nullopt;
    }
    qputenv(kTemporaryFolderVariable, QByteArray::fromStdString(path));
    return EphemeralFolder(std::move(path));
}

EphemeralFolder::EphemeralFolder(std::string path)
    : path_(std::move(path)) {}

void EphemeralFolder::remove() const {
    std::error_code failure;
    for (int i = 0; i < kRemovals; ++i) {
        std::filesystem::remove_all(path_, failure);
        if (!failure)
            return;
    }
}

} // namespace host::cli
