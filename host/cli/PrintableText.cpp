#include "host/cli/PrintableText.h"

#include <QtCore/QList>

#include <cwchar>

namespace host::cli {

namespace {

bool turnsDirection(char32_t c) {
    return c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

QString escaped(char32_t c) {
    switch (c) {
    case '\n':
        return QStringLiteral("\\n");
    case '\r':
        return QStringLiteral("\\r");
    case '\t':
        return QStringLiteral("\\t");
    default:
        return c <= 0xFF ? QStringLiteral("\\x%1").arg(static_cast<uint>(c), 2, 16, QLatin1Char('0'))
                         : QStringLiteral("\\u{%1}").arg(static_cast<uint>(c), 4, 16, QLatin1Char('0'));
    }
}

int columnsOf(char32_t c) {
    // A character unknown to the locale is shown as some replacement.
    const int count = wcwidth(static_cast<wchar_t>(c));
    return count < 0 ? 1 : count;
}

} // namespace

bool mustBeEscaped(char32_t c) {
    switch (QChar::category(c)) {
    case QChar::Other_Control:
    case QChar::Other_Surrogate:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        return turnsDirection(c);
    }
}

QString printable(const QString& text) {
    QString result;
    for (const uint c : text.toUcs4())
        result += mustBeEscaped(c) ? escaped(c) : QString::fromUcs4(reinterpret_cast<const char32_t*>(&c), 1);
    return result;
}

int columns(const QString& text) {
    int count = 0;
    for (const uint c : text.toUcs4())
        count += columnsOf(c);
    return count;
}

QString cutToWidth(const QString& text, int width) {
    QString result;
    int used = 0;
    for (const uint c : text.toUcs4()) {
        used += columnsOf(c);
        if (used > width)
            break;
        result += QString::fromUcs4(reinterpret_cast<const char32_t*>(&c), 1);
    }
    return result;
}

} // namespace host::cli
