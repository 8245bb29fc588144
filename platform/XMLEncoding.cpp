#include "platform/XMLEncoding.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QStringConverter>

#include <algorithm>
#include <array>

namespace platform {

namespace {

/// A declaration is the first thing in a document, and short.
constexpr qsizetype kDeclarationLength = 256;

/// What windows-1252 has in place of the control characters 0x80 to 0x9F of ISO-8859-1; its five free
/// places stay what they are there (WHATWG Encoding Standard, index windows-1252).
constexpr std::array<char16_t, 32> kWindows1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

QString declaredEncoding(const QByteArray& data) {
    static const QRegularExpression declaration(
        QStringLiteral(R"(^<\?xml\s[^>]*?\sencoding\s*=\s*["']([A-Za-z][A-Za-z0-9._-]*)["'])"));
    // No further than the declaration: what follows may be a password, and this copy is not wiped.
    const auto start = QByteArrayView(data).first(std::min(data.size(), kDeclarationLength));
    const qsizetype end = std::max<qsizetype>(start.indexOf("?>"), 0);
    const auto match = declaration.match(QString::fromLatin1(start.first(end)));
    return match.captured(1).toLower();
}

QString textFromWindows1252(const QByteArray& data) {
    QString text = QString::fromLatin1(data);
    for (QChar& character : text) {
        const char16_t code = character.unicode();
        if (code >= 0x80 && code < 0x80 + kWindows1252.size())
            character = kWindows1252[code - 0x80];
    }
    return text;
}

QString decoded(const QByteArray& data, QStringConverter::Encoding encoding) {
    // What is not allowed reads as NUL, which no document may hold either.
    QStringDecoder decoder(encoding, QStringConverter::Flag::ConvertInvalidToNull);
    QString text = decoder.decode(data);
    if (const qsizetype end = text.indexOf(QChar::Null); end >= 0)
        text.truncate(end);
    return text;
}

} // namespace

std::optional<QString> decodedXMLDocument(const QByteArray& data) {
    if (const auto unicode = QStringConverter::encodingForData(data, u'<');
        unicode && *unicode != QStringConverter::Utf8)
        return decoded(data, *unicode);
    const QString name = declaredEncoding(data);
    // A declaration that could be read byte by byte is not in UTF-16, whatever it says.
    if (name.isEmpty() || name == QLatin1String("utf-8") || name == QLatin1String("utf8") ||
        name == QLatin1String("us-ascii") || name == QLatin1String("ascii") ||
        name.startsWith(QLatin1String("utf-16")))
        return decoded(data, QStringConverter::Utf8);
    if (name == QLatin1String("iso-8859-1") || name == QLatin1String("latin1"))
        return decoded(data, QStringConverter::Latin1);
    if (name == QLatin1String("windows-1252") || name == QLatin1String("cp1252"))
        return textFromWindows1252(data);
    return std::nullopt;
}

} // namespace platform
