#include "plugin/TextFormat.h"

#include <gtest/gtest.h>

TEST(TextFormat, EachPlaceholderTakesTheNextValue) {
    EXPECT_EQ(formattedText(QStringLiteral("%@/%@/"), {QStringLiteral("77"), QStringLiteral("Ceremony")}),
              QStringLiteral("77/Ceremony/"));
}

TEST(TextFormat, AnAbsentValueReadsAsNull) {
    EXPECT_EQ(formattedText(QStringLiteral("%@/"), {std::nullopt}), QStringLiteral("(null)/"));
}

TEST(TextFormat, ValuesAreNeverLookedAtAgain) {
    EXPECT_EQ(formattedText(QStringLiteral("%@-%@"), {QStringLiteral("%@"), QStringLiteral("%1 %d %@")}),
              QStringLiteral("%@-%1 %d %@"));
}

TEST(TextFormat, APlaceholderWithoutAValueStays) {
    EXPECT_EQ(formattedText(QStringLiteral("%@ and %@"), {QStringLiteral("one")}),
              QStringLiteral("one and %@"));
}

TEST(TextFormat, AValueWithoutAPlaceholderIsLeftOut) {
    EXPECT_EQ(formattedText(QStringLiteral("constant"), {QStringLiteral("one")}), QStringLiteral("constant"));
    EXPECT_EQ(formattedText(QString(), {}), QString());
}
