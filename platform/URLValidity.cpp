#include "platform/URLLoader.h"

#include <algorithm>
#include <optional>

namespace platform {

namespace {

// The characters of RFC 3986's rules; "%" is looked at apart.
constexpr QStringView kUnreserved = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
constexpr QStringView kSubDelimiters = u"!$&'()*+,;=";
constexpr QStringView kDigits = u"0123456789";
constexpr QStringView kHexDigits = u"0123456789ABCDEFabcdef";

bool isHexDigit(QChar character) {
    return kHexDigits.contains(character);
}

/// Whether `part` holds nothing but unreserved characters, sub-delimiters, `further` ones and escapes.
bool holdsOnly(QStringView part, QStringView further) {
    for (qsizetype i = 0; i < part.size(); ++i) {
        const QChar character = part[i];
        if (character == u'%') {
            if (i + 2 >= part.size() || !isHexDigit(part[i + 1]) || !isHexDigit(part[i + 2]))
                return false;
            i += 2;
        } else if (!kUnreserved.contains(character) && !kSubDelimiters.contains(character) &&
                   !further.contains(character)) {
            return false;
        }
    }
    return true;
}

bool isScheme(QStringView scheme) {
    return !scheme.isEmpty() &&
           ((scheme[0] >= u'a' && scheme[0] <= u'z') || (scheme[0] >= u'A' && scheme[0] <= u'Z')) &&
           std::all_of(scheme.begin(), scheme.end(), [](QChar character) {
               return character != u'_' && character != u'~' &&
                      (kUnreserved.contains(character) || character == u'+');
           });
}

bool isPort(QStringView port) {
    return std::all_of(port.begin(), port.end(), [](QChar character) { return kDigits.contains(character); });
}

/// authority = [ userinfo "@" ] host [ ":" port ]
bool isAuthority(QStringView authority) {
    const qsizetype at = authority.indexOf(u'@');
    if (at >= 0 && !holdsOnly(authority.first(at), u":"))
        return false;
    QStringView host = authority.sliced(at + 1);
    if (host.startsWith(u'[')) {
        const qsizetype end = host.indexOf(u']');
        if (end < 0 || !holdsOnly(host.sliced(1, end - 1), u":") || host.sliced(1, end - 1).contains(u'%'))
            return false;
        const QStringView rest = host.sliced(end + 1);
        return end > 1 && (rest.isEmpty() || (rest.startsWith(u':') && isPort(rest.sliced(1))));
    }
    if (const qsizetype colon = host.indexOf(u':'); colon >= 0) {
        if (!isPort(host.sliced(colon + 1)))
            return false;
        host = host.first(colon);
    }
    return !host.isEmpty() && holdsOnly(host, u"");
}

/// Splits off what follows the first `separator`; absent where there is none.
std::optional<QStringView> splitOff(QStringView& text, QChar separator) {
    const qsizetype found = text.indexOf(separator);
    if (found < 0)
        return std::nullopt;
    const QStringView rest = text.sliced(found + 1);
    text = text.first(found);
    return rest;
}

} // namespace

bool URLLoader::isValidURL(const QString& text) {
    QStringView rest = text;
    if (const auto fragment = splitOff(rest, u'#'); fragment && !holdsOnly(*fragment, u":@/?"))
        return false;
    if (const auto query = splitOff(rest, u'?'); query && !holdsOnly(*query, u":@/?"))
        return false;
    const qsizetype colon = rest.indexOf(u':');
    if (colon < 0 || !isScheme(rest.first(colon)) ||
        rest.sliced(colon, std::min<qsizetype>(3, rest.size() - colon)) != u"://")
        return false;
    const QStringView hierarchy = rest.sliced(colon + 3);
    const qsizetype slash = hierarchy.indexOf(u'/');
    const QStringView authority = slash < 0 ? hierarchy : hierarchy.first(slash);
    const QStringView path = slash < 0 ? QStringView() : hierarchy.sliced(slash);
    return isAuthority(authority) && holdsOnly(path, u":@/");
}

} // namespace platform
