#include "platform/FTPWriteStream.h"
#include "platform/URLLoader.h"
#include "service/ServiceRequests.h"
#include "tests/fuzz/FuzzData.h"

#include <QtCore/QStringList>

#include <algorithm>

using platform::FTPWriteStream;
using platform::URLLoader;

namespace {

const QString kServer = QStringLiteral("ftp://ftp.quillmark.example:21/");
const QString kWebHost = QStringLiteral("www.quillmark.example");
const QByteArray kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

bool isControl(QChar character) {
    return character.category() == QChar::Other_Control;
}

/// Whether the path may be asked of a server at all.
bool isSafe(const QString& path) {
    const QStringList components = path.split(QLatin1Char('/'));
    return !path.isEmpty() && std::none_of(path.begin(), path.end(), isControl) &&
           std::none_of(components.begin(), components.end(), [](const QString& component) {
               return component == QLatin1String(".") || component == QLatin1String("..");
           });
}

/// Texts that are no Unicode can't be told apart once they are UTF-8.
bool isUnicode(const QString& text) {
    return QString::fromUtf8(text.toUtf8()) == text;
}

void checkFTP(const QString& path) {
    const QString url = FTPWriteStream::percentEscaped(kServer + path);
    require(url.startsWith(kServer));
    const QByteArray escaped = url.mid(kServer.size()).toLatin1();
    require(std::all_of(escaped.begin(), escaped.end(), [](char character) {
        return character == '/' || character == '%' || kUnreserved.contains(character);
    }));
    if (isUnicode(path))
        require(QString::fromUtf8(QByteArray::fromPercentEncoding(escaped)) == path);
    const bool exists = FTPWriteStream::create(url, {}) != nullptr;
    require(!exists || isSafe(path) || !isUnicode(path));
    require(exists || !isSafe(path) || !isUnicode(path));
}

/// What the fuzzer makes up as a whole URL names no path that leads elsewhere either.
void checkWholeURL(const QString& text) {
    if (!FTPWriteStream::create(text, {}))
        return;
    require(text.startsWith(QStringLiteral("ftp://"), Qt::CaseInsensitive));
    const auto decoded = QString::fromUtf8(QByteArray::fromPercentEncoding(text.toUtf8()));
    require(!decoded.endsWith(QStringLiteral("/..")) && !decoded.contains(QStringLiteral("/../")));
}

/// A request that would be sent is one line of printable ASCII to the service's own host.
void checkHTTPS(const QString& text) {
    const QString half = text.left(text.size() / 2);
    const QString rest = text.mid(text.size() / 2);
    for (const QString& url :
         {service_requests::login(kWebHost, half, rest), service_requests::eventList(kWebHost, half, rest),
          service_requests::categoryList(kWebHost, half, rest, text),
          service_requests::finishing(kWebHost, half, rest, text, half)}) {
        require(url.startsWith(QStringLiteral("https://") + kWebHost + QStringLiteral("/instantupload/")));
        require(!URLLoader::isValidURL(url) || std::all_of(url.begin(), url.end(), [](QChar character) {
            return character > u' ' && character < u'\x7f';
        }));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray bytes = answerOf(data, size);
    const QString text = size % 2 == 0
                             ? QString::fromUtf8(bytes)
                             : QString(reinterpret_cast<const QChar*>(QByteArray(bytes).constData()),
                                       static_cast<qsizetype>(size / 2));
    checkFTP(text);
    checkWholeURL(text);
    checkHTTPS(text);
    URLLoader::isValidURL(text);
    return 0;
}
