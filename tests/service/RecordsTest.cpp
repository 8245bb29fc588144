#include "service/Records.h"

#include <gtest/gtest.h>

namespace {

const QString kSecret = QStringLiteral("secret");

/// A text in memory that a test can look at after its end.
QString deepCopy(const QString& text) {
    return QString(text.constData(), text.size());
}

} // namespace

TEST(Record, AbsentTextHasNoValue) {
    Record record;
    EXPECT_EQ(record.text(kNameKey), std::nullopt);
    record.setText(kNameKey, QString());
    EXPECT_EQ(record.text(kNameKey), QString());
    record.removeText(kNameKey);
    EXPECT_EQ(record.text(kNameKey), std::nullopt);
    EXPECT_EQ(textOf(nullptr, kNameKey), std::nullopt);
}

TEST(Record, PasswordsAreCopiesOfItsOwn) {
    QString typed = deepCopy(kSecret);
    Record record;
    record.setText(kPasswordKey, typed);
    EXPECT_NE(record.texts().constFind(kPasswordKey)->constData(), typed.constData());
    const Record copy(record);
    EXPECT_NE(record.texts().constFind(kPasswordKey)->constData(),
              copy.texts().constFind(kPasswordKey)->constData());
    record.removeText(kPasswordKey);
    EXPECT_EQ(typed, kSecret);
    EXPECT_EQ(copy.text(kPasswordKey), kSecret);
}

TEST(Record, ReaderOfAPasswordKeepsItWhenItLeavesTheRecord) {
    Record record;
    record.setText(kPasswordKey, kSecret);
    const auto read = record.text(kPasswordKey);
    record.setText(kPasswordKey, QStringLiteral("other"));
    EXPECT_EQ(read, kSecret);
    record.removeText(kPasswordKey);
    EXPECT_EQ(read, kSecret);
}
