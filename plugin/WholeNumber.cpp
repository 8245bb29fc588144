#include "plugin/WholeNumber.h"

#include <QtCore/QList>
#include <QtCore/QStringView>

#include <array>

namespace {

constexpr uint kAsciiZero = '0';
constexpr QLatin1Char kAsciiMinus{'-'};
constexpr uint kBase = 10;

/// The scripts that have digits of their own (Unicode 15, general category Nd), each with its zero. A locale
/// whose numbers are usually written in ASCII, such as Hindi's, still has those of its script.
struct ScriptDigits {
    QLocale::Script script;
    uint zero;
};
constexpr std::array<ScriptDigits, 18> kScriptDigits{{
    {QLocale::ArabicScript, 0x0660},
    {QLocale::ArabicScript, 0x06F0}, // Of Persian and Urdu.
    {QLocale::NkoScript, 0x07C0},
    {QLocale::DevanagariScript, 0x0966},
    {QLocale::BengaliScript, 0x09E6},
    {QLocale::GurmukhiScript, 0x0A66},
    {QLocale::GujaratiScript, 0x0AE6},
    {QLocale::OriyaScript, 0x0B66},
    {QLocale::TamilScript, 0x0BE6},
    {QLocale::TeluguScript, 0x0C66},
    {QLocale::KannadaScript, 0x0CE6},
    {QLocale::MalayalamScript, 0x0D66},
    {QLocale::ThaiScript, 0x0E50},
    {QLocale::LaoScript, 0x0ED0},
    {QLocale::TibetanScript, 0x0F20},
    {QLocale::MyanmarScript, 0x1040},
    {QLocale::KhmerScript, 0x17E0},
    {QLocale::MongolianScript, 0x1810},
}};

/// The zeros of all the digits that numbers are written with.
QList<uint> zerosOf(const QLocale& locale) {
    QList<uint> zeros{kAsciiZero};
    zeros += locale.zeroDigit().toUcs4();
    for (const auto& digits : kScriptDigits) {
        if (digits.script == locale.script())
            zeros.append(digits.zero);
    }
    return zeros;
}

std::optional<std::uint32_t> digitValue(uint character, const QList<uint>& zeros) {
    for (const uint zero : zeros) {
        if (character >= zero && character - zero < kBase)
            return character - zero;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::int32_t> wholeNumber(const QString& text, const QLocale& locale) {
    QStringView digits(text);
    bool isNegative = false;
    for (const QString& sign : {QString(kAsciiMinus), locale.negativeSign()}) {
        if (!isNegative && digits.startsWith(sign)) {
            isNegative = true;
            digits = digits.mid(sign.size());
        }
    }
    if (digits.isEmpty())
        return std::nullopt;

    const QList<uint> zeros = zerosOf(locale);
    std::uint32_t number = 0; // Unsigned: what is beyond 32 bits falls away.
    for (const uint character : digits.toUcs4()) {
        const auto digit = digitValue(character, zeros);
        if (!digit)
            return std::nullopt;
        number = number * kBase + *digit;
    }
    return static_cast<std::int32_t>(isNegative ? 0 - number : number);
}
