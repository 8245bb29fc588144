#pragma once

#include "tests/support/LeakSuppressions.h"

#include <QtCore/QProcess>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

#include <optional>

#include <locale.h>

namespace test_support {

/// Sets an environment variable as long as it lives.
class EnvironmentVariable {
public:
    EnvironmentVariable(const char* name, const QByteArray& value)
        : name_(name) {
        if (qEnvironmentVariableIsSet(name))
            previous_ = qgetenv(name);
        qputenv(name, value);
    }
    ~EnvironmentVariable() {
        if (previous_)
            qputenv(name_, *previous_);
        else
            qunsetenv(name_);
    }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    const char* const name_;
    std::optional<QByteArray> previous_;
};

/// Names a locale in the environment, for this process and those that it starts, as long as it lives. It is
/// made for the purpose: machines seldom have any but their own. What is set in this process stays.
class CharacterLocale {
public:
    CharacterLocale(const char* language, const char* encoding)
        : name_(QByteArray(language) + '.' + encoding)
        , path_("LOCPATH", folder_.path().toLocal8Bit())
        , users_("LC_ALL", name_) {
        QProcess::execute(QStringLiteral("localedef"),
                          {QStringLiteral("--no-archive"), QStringLiteral("--quiet"), QStringLiteral("-i"),
                           QLatin1String(language), QStringLiteral("-f"), QLatin1String(encoding),
                           folder_.filePath(QLatin1String(name_))});
    }

    bool isSet() const {
        const locale_t made = newlocale(LC_CTYPE_MASK, name_.constData(), nullptr);
        if (made)
            freelocale(made);
        return made != nullptr;
    }

private:
    const QTemporaryDir folder_;
    const QByteArray name_;
    const EnvironmentVariable path_;
    const EnvironmentVariable users_;
};

} // namespace test_support
