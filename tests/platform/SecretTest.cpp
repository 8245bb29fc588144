#include "platform/Secret.h"
#include "tests/support/CharacterLocale.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using platform::textFromDefaultCString;
using platform::wipe;
using test_support::CharacterLocale;
using test_support::EnvironmentVariable;

TEST(Wipe, ZerosEveryCopyOfAText) {
    QString text = QString::fromLatin1("pass") + QString::fromLatin1("word");
    const QString copy = text;
    wipe(text);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(copy.size(), 8);
    EXPECT_TRUE(std::all_of(copy.begin(), copy.end(), [](QChar character) { return character.isNull(); }));
}

TEST(Wipe, ZerosEveryCopyOfBytes) {
    QByteArray bytes("password");
    const QByteArray copy = bytes;
    wipe(bytes);
    EXPECT_TRUE(bytes.isEmpty());
    EXPECT_EQ(copy, QByteArray(8, '\0'));
}

TEST(Wipe, ZerosWhatWasCutOff) {
    QByteArray bytes("my password");
    bytes.truncate(6);
    bytes.remove(0, 3);
    const QByteArray copy = bytes;
    ASSERT_EQ(copy.constData()[5], 'o');
    ASSERT_EQ(copy.constData()[-3], 'm');
    wipe(bytes);
    EXPECT_EQ(copy.constData()[5], '\0');
    EXPECT_EQ(copy.constData()[-3], '\0');
}

TEST(Wipe, LeavesLiteralsAlone) {
    QString literal = QStringLiteral("constant");
    const QString copy = literal;
    wipe(literal);
    EXPECT_TRUE(literal.isEmpty());
    EXPECT_EQ(copy, QLatin1String("constant"));
    static const char bytes[] = "constant";
    QByteArray raw = QByteArray::fromRawData(bytes, 8);
    wipe(raw);
    EXPECT_STREQ(bytes, "constant");
}

TEST(Wipe, TakesEmptyTexts) {
    QString text;
    QByteArray bytes("");
    wipe(text);
    wipe(bytes);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_TRUE(bytes.isEmpty());
}

TEST(DefaultCString, IsUTF8InAUTF8Locale) {
    const CharacterLocale locale("de_DE", "UTF-8");
    ASSERT_TRUE(locale.isSet());
    EXPECT_EQ(textFromDefaultCString("p\xC3\xA4ss \xF0\x9F\x94\x91"), QStringLiteral("päss 🔑"));
    EXPECT_EQ(textFromDefaultCString(QByteArray(3000, 'x')), QString(3000, QLatin1Char('x')));
    EXPECT_EQ(textFromDefaultCString(""), QString());
}

TEST(DefaultCString, IsReadInTheLocalesEncoding) {
    {
        const CharacterLocale locale("de_DE", "ISO-8859-1");
        ASSERT_TRUE(locale.isSet());
        EXPECT_EQ(textFromDefaultCString("p\xE4ss"), QStringLiteral("päss"));
        EXPECT_EQ(textFromDefaultCString("p\xC3\xA4ss"), QStringLiteral("pÃ¤ss"));
    }
    const CharacterLocale locale("ru_RU", "KOI8-R");
    ASSERT_TRUE(locale.isSet());
    EXPECT_EQ(textFromDefaultCString("\xD0\xC1\xD2\xCF\xCC\xD8"), QStringLiteral("пароль"));
}

TEST(DefaultCString, IsLatin1InThePlainLocale) {
    const EnvironmentVariable users("LC_ALL", "C");
    EXPECT_EQ(textFromDefaultCString("pass"), QStringLiteral("pass"));
    EXPECT_EQ(textFromDefaultCString("p\xC3\xA4ss"), QStringLiteral("pÃ¤ss"));
}

TEST(DefaultCString, LocaleThatThereIsNotHarmsNothing) {
    const EnvironmentVariable users("LC_ALL", "xx_XX.nothing");
    EXPECT_EQ(textFromDefaultCString("pass"), QStringLiteral("pass"));
}

TEST(DefaultCString, CharactersWithMarksAreReadWhole) {
    // In this encoding they are one character each, but two code points.
    const CharacterLocale locale("zh_HK", "BIG5-HKSCS");
    ASSERT_TRUE(locale.isSet());
    const QByteArray characters = QByteArray("\x88\x62\x88\xA5").repeated(100);
    EXPECT_EQ(textFromDefaultCString(characters), QStringLiteral("\u00CA\u0304\u00EA\u030C").repeated(100));
}

TEST(DefaultCString, UnknownBytesMakeItLatin1) {
    const CharacterLocale locale("de_DE", "UTF-8");
    ASSERT_TRUE(locale.isSet());
    EXPECT_EQ(textFromDefaultCString("p\xE4ss"), QStringLiteral("päss"));
    EXPECT_EQ(textFromDefaultCString("cut \xC3"), QStringLiteral("cut Ã"));
    EXPECT_EQ(textFromDefaultCString("\xED\xA0\x80"), QString::fromLatin1("\xED\xA0\x80")); // a surrogate
}

TEST(DefaultCString, EndsAtTheFirstNUL) {
    EXPECT_EQ(textFromDefaultCString(QByteArray("ab\0cd", 5)), QStringLiteral("ab"));
    EXPECT_EQ(textFromDefaultCString(QByteArray("\0cd", 3)), QString());
}

TEST(DefaultCString, ReadsNoFurtherThanTheBytes) {
    const QByteArray longer("password and more");
    EXPECT_EQ(textFromDefaultCString(QByteArray::fromRawData(longer.constData(), 8)),
              QStringLiteral("password"));
}

} // namespace
