// Which texts are whole numbers, and which numbers they are.

#include "plugin/WholeNumber.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

constexpr auto kNone = std::nullopt;
constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();

/// A text with what it is under the C locale, in German and in Hindi.
struct Row {
    const char* text;
    std::optional<std::int32_t> c;
    std::optional<std::int32_t> german;
    std::optional<std::int32_t> hindi;
};

constexpr Row everywhere(const char* text, std::optional<std::int32_t> number) {
    return {text, number, number, number};
}

void PrintTo(const Row& row, std::ostream* out) {
    *out << '"' << row.text << '"';
}

std::string textOf(std::optional<std::int32_t> number) {
    return number ? std::to_string(*number) : "none";
}

class WholeNumber : public testing::TestWithParam<Row> {};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    Digits, WholeNumber,
    testing::Values(everywhere("1280", 1280), everywhere("0", 0), everywhere("7", 7),
                    everywhere("1279", 1279), everywhere("01280", 1280),
                    everywhere("0000000000000001280", 1280), everywhere("000", 0),
                    // Devanagari's digits are Hindi's own, also between ASCII's.
                    Row{"१२८०", kNone, kNone, 1280}, Row{"-१२८०", kNone, kNone, -1280},
                    Row{"००१२८०", kNone, kNone, 1280}, Row{"१२80", kNone, kNone, 1280},
                    Row{"४२९४९६८५७६", kNone, kNone, 1280}, Row{"१,२८०", kNone, kNone, kNone},
                    Row{"१२८०.५", kNone, kNone, kNone},
                    // Those of nobody here: full-width, Arabic, Persian, Bengali, superscript, Roman, bold.
                    everywhere("１２８０", kNone), everywhere("١٢٨٠", kNone), everywhere("۱۲۸۰", kNone),
                    everywhere("১২৮০", kNone), everywhere("12²", kNone), everywhere("Ⅻ", kNone),
                    everywhere("𝟏𝟐𝟖𝟎", kNone), everywhere("12½", kNone)));

INSTANTIATE_TEST_SUITE_P(Signs, WholeNumber,
                         testing::Values(everywhere("-1280", -1280), everywhere("-0", 0),
                                         everywhere("-007", -7), everywhere("+1280", kNone),
                                         everywhere("--1280", kNone), everywhere("-+1280", kNone),
                                         everywhere("-", kNone), everywhere("1280-", kNone),
                                         everywhere("- 1280", kNone), everywhere("−1280", kNone),
                                         everywhere("(1280)", kNone), everywhere("12-80", kNone)));

INSTANTIATE_TEST_SUITE_P(Blanks, WholeNumber,
                         testing::Values(everywhere("", kNone), everywhere(" ", kNone),
                                         everywhere(" 1280", kNone), everywhere("1280 ", kNone),
                                         everywhere(" 1280 ", kNone), everywhere("\t1280", kNone),
                                         everywhere("1280\n", kNone),
                                         everywhere("\xC2\xA0"
                                                    "1280",
                                                    kNone),
                                         everywhere("12 80", kNone)));

INSTANTIATE_TEST_SUITE_P(Separators, WholeNumber,
                         testing::Values(everywhere("1,280", kNone), everywhere("1.280", kNone),
                                         everywhere("1 280", kNone), everywhere("1'280", kNone),
                                         everywhere("1\xE2\x80\xAF"
                                                    "280",
                                                    kNone),
                                         everywhere("12,34,567", kNone), everywhere("1280.0", kNone),
                                         everywhere("1280,0", kNone), everywhere("1280.5", kNone),
                                         everywhere("1280,5", kNone), everywhere("1280.", kNone),
                                         everywhere("1280,", kNone), everywhere(".1280", kNone)));

INSTANTIATE_TEST_SUITE_P(OtherTexts, WholeNumber,
                         testing::Values(everywhere("wide", kNone), everywhere("1280px", kNone),
                                         everywhere("px1280", kNone), everywhere("1e4", kNone),
                                         everywhere("1E4", kNone), everywhere("0x500", kNone),
                                         everywhere("0b1", kNone), everywhere("1280L", kNone),
                                         everywhere("nan", kNone), everywhere("inf", kNone),
                                         everywhere("-inf", kNone), everywhere("1280%", kNone),
                                         everywhere("१२८० px", kNone)));

INSTANTIATE_TEST_SUITE_P(Beyond32Bits, WholeNumber,
                         testing::Values(everywhere("2147483647", kMost), everywhere("2147483648", kLeast),
                                         everywhere("-2147483648", kLeast), everywhere("-2147483649", kMost),
                                         everywhere("4294967295", -1), everywhere("4294967296", 0),
                                         everywhere("4294968576", 1280), everywhere("-4294966016", 1280),
                                         everywhere("18446744073709552896", 1280),
                                         everywhere("99999999999999999999999999", -469762049)));

TEST_P(WholeNumber, IsReadInEachLocaleAsItIsWrittenThere) {
    const QString text = QString::fromUtf8(GetParam().text);
    EXPECT_EQ(textOf(wholeNumber(text, QLocale::c())), textOf(GetParam().c));
    EXPECT_EQ(textOf(wholeNumber(text, QLocale(QLocale::German))), textOf(GetParam().german));
    EXPECT_EQ(textOf(wholeNumber(text, QLocale(QLocale::Hindi))), textOf(GetParam().hindi));
}

TEST(WholeNumber, ANulEndsNoNumber) {
    EXPECT_EQ(wholeNumber(QStringLiteral("1280") + QChar(u'\0'), QLocale::c()), kNone);
    EXPECT_EQ(wholeNumber(QStringLiteral("1280") + QChar(0xD835), QLocale::c()), kNone) << "half a character";
}

TEST(WholeNumber, MayBeOfAnyLength) {
    // 10 to the power of 32 and beyond is a multiple of 2 to the power of 32: the last 32 digits decide.
    const QString zeros(100'000, QLatin1Char('0'));
    EXPECT_EQ(wholeNumber(zeros + QStringLiteral("1280"), QLocale::c()), 1280);
    EXPECT_EQ(wholeNumber(QLatin1Char('7') + zeros + QStringLiteral("1280"), QLocale::c()), 1280);
    EXPECT_EQ(wholeNumber(QLatin1Char('-') + QString(100'000, QLatin1Char('9')), QLocale::c()), 1);
    EXPECT_EQ(wholeNumber(QString(100'000, QLatin1Char('9')) + QLatin1Char('x'), QLocale::c()), kNone);
}

TEST(WholeNumber, EveryLocalesOwnDigitsAndMinusSignAreTaken) {
    for (const QLocale& locale :
         QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory)) {
        QLocale plain = locale;
        plain.setNumberOptions(QLocale::OmitGroupSeparator);
        for (const int number : {1280, -1280, 1234567890})
            EXPECT_EQ(wholeNumber(plain.toString(number), locale), number)
                << locale.name().toStdString() << ' ' << plain.toString(number).toStdString();
    }
}

TEST(WholeNumber, IsReadInTheUsersLocaleWhereNoneIsNamed) {
    const QString devanagari = QStringLiteral("१२८०");
    const QLocale before;
    QLocale::setDefault(QLocale(QLocale::Hindi));
    EXPECT_EQ(wholeNumber(devanagari), 1280);
    QLocale::setDefault(QLocale(QLocale::German));
    EXPECT_EQ(wholeNumber(devanagari), kNone);
    QLocale::setDefault(before);
}
