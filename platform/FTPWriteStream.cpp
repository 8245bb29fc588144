#include "platform/FTPWriteStream.h"

#include <QtCore/QUrl>

namespace platform {

namespace {

constexpr QLatin1String kScheme{"ftp://"};

} // namespace

QString FTPWriteStream::percentEscaped(const QString& urlText) {
    const auto pathStart = urlText.indexOf(QLatin1Char('/'), kScheme.size());
    if (pathStart < 0)
        return urlText;
    return urlText.left(pathStart) +
           QString::fromLatin1(QUrl::toPercentEncoding(urlText.mid(pathStart), QByteArrayLiteral("/")));
}

} // namespace platform
