#include "host/core/FileList.h"

#include <QtCore/QByteArrayList>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace host {

namespace {

QString lastError() {
    return QString::fromStdString(std::generic_category().message(errno));
}

std::optional<QByteArray> wholeFile(const QByteArray& path, QString& error) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.constData(), "rbe"), std::fclose);
    if (!file) {
        error = lastError();
        return std::nullopt;
    }
    QByteArray contents;
    char block[1 << 16];
    while (const std::size_t count = std::fread(block, 1, sizeof block, file.get()))
        contents.append(block, static_cast<qsizetype>(count));
    if (std::ferror(file.get())) {
        error = lastError();
        return std::nullopt;
    }
    return contents;
}

} // namespace

std::optional<std::vector<QByteArray>> fileList(const QByteArray& path, QString& error) {
    auto contents = wholeFile(path, error);
    if (!contents)
        return std::nullopt;
    // The last name may go without its end.
    if (contents->endsWith('\0'))
        contents->chop(1);
    if (contents->isEmpty())
        return std::vector<QByteArray>();
    const QByteArrayList names = contents->split('\0');
    if (names.contains(QByteArray())) {
        error = QStringLiteral("it has an empty name");
        return std::nullopt;
    }
    return std::vector<QByteArray>(names.begin(), names.end());
}

} // namespace host
