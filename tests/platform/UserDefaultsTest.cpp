#include "platform/UserDefaults.h"

#include <QtCore/QFile>
#include <QtCore/QSettings>
#include <QtCore/QStringList>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

using platform::UserDefaults;

const QString kKey = QStringLiteral("key");

QString file() {
    return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Quillmark/Quillmark.conf");
}

/// What another program, which starts afterwards, reads.
QVariant writtenValue(const QString& key) {
    return QSettings(file(), QSettings::IniFormat).value(key);
}

TEST(UserDefaults, AbsentValueIsInvalid) {
    EXPECT_FALSE(UserDefaults::value(QStringLiteral("never written")).isValid());
    EXPECT_FALSE(UserDefaults::value(QStringLiteral("never written")).toBool());
}

TEST(UserDefaults, ValuesKeepTheirMeaning) {
    UserDefaults::setValue(kKey, true);
    EXPECT_TRUE(UserDefaults::value(kKey).toBool());
    EXPECT_TRUE(writtenValue(kKey).toBool());
    UserDefaults::setValue(kKey, false);
    EXPECT_TRUE(UserDefaults::value(kKey).isValid());
    EXPECT_FALSE(UserDefaults::value(kKey).toBool());
    EXPECT_FALSE(writtenValue(kKey).toBool());
    for (const double number : {12.0, 7.9, 0.1 + 0.2, -1e300}) {
        UserDefaults::setValue(kKey, number);
        EXPECT_EQ(UserDefaults::value(kKey).toDouble(), number);
        EXPECT_EQ(writtenValue(kKey).toDouble(), number);
    }
}

TEST(UserDefaults, AnyTextComesBack) {
    const QStringList texts = {QStringLiteral("ann"),        QStringLiteral("Zoë 山田"),
                               QStringLiteral("a, b"),       QStringLiteral("@Invalid()"),
                               QStringLiteral("\"quoted\""), QStringLiteral("a;b=c\\d%20"),
                               QStringLiteral(" spaces "),   QStringLiteral("[group]\nx=1"),
                               QStringLiteral("true"),       QString()};
    for (const QString& text : texts) {
        UserDefaults::setValue(kKey, text);
        EXPECT_EQ(UserDefaults::value(kKey).toString(), text);
        EXPECT_EQ(writtenValue(kKey).toString(), text);
    }
}

TEST(UserDefaults, RemovedValueIsGoneAtOnce) {
    UserDefaults::setValue(kKey, QStringLiteral("ann"));
    UserDefaults::remove(kKey);
    EXPECT_FALSE(UserDefaults::value(kKey).isValid());
    EXPECT_FALSE(writtenValue(kKey).isValid());
    UserDefaults::remove(kKey);
}

TEST(UserDefaults, SystemWideValuesAreNotTheUsers) {
    // Qt also looks into a file of the whole organisation.
    const QString organisation = qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Quillmark.conf");
    QSettings(organisation, QSettings::IniFormat).setValue(QStringLiteral("elsewhere"), true);
    EXPECT_FALSE(UserDefaults::value(QStringLiteral("elsewhere")).isValid());
}

TEST(UserDefaults, ThreadsWriteSideBySide) {
    std::vector<std::jthread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            for (int round = 0; round < 10; ++round)
                UserDefaults::setValue(QStringLiteral("thread %1").arg(number), round);
        });
    }
    threads.clear();
    for (int number = 0; number < 4; ++number)
        EXPECT_EQ(writtenValue(QStringLiteral("thread %1").arg(number)).toInt(), 9);
}

} // namespace
