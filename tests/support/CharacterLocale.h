#pragma once

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <clocale>

namespace test_support {

/// Puts the process in a locale's character set as long as it lives. The locale is made for the purpose:
/// machines seldom have any but their own.
class CharacterLocale {
public:
    CharacterLocale(const char* language, const char* encoding)
        : previous_(std::setlocale(LC_CTYPE, nullptr)) {
        const QString name = QStringLiteral("%1.%2").arg(QLatin1String(language), QLatin1String(encoding));
        QProcess::execute(QStringLiteral("localedef"),
                          {QStringLiteral("--no-archive"), QStringLiteral("--quiet"), QStringLiteral("-i"),
                           QLatin1String(language), QStringLiteral("-f"), QLatin1String(encoding),
                           folder_.filePath(name)});
        qputenv("LOCPATH", folder_.path().toLocal8Bit());
        isSet_ = std::setlocale(LC_CTYPE, name.toLatin1().constData()) != nullptr;
    }
    ~CharacterLocale() {
        qunsetenv("LOCPATH");
        std::setlocale(LC_CTYPE, previous_.constData());
    }
    CharacterLocale(const CharacterLocale&) = delete;
    CharacterLocale& operator=(const CharacterLocale&) = delete;

    bool isSet() const { return isSet_; }

private:
    const QByteArray previous_;
    const QTemporaryDir folder_;
    bool isSet_ = false;
};

} // namespace test_support
