#pragma once

#include "tests/support/Waiting.h"

#include <QtCore/QByteArray>
#include <QtCore/QProcess>
#include <QtCore/QProcessEnvironment>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace test_support {

/// A session bus with a keyring of its own (see with-keyring), on which this process is while the object
/// lives.
class KeyringSession {
public:
    static constexpr const char* kPassword = "open sesame";
    static constexpr const char* kBusVariable = "DBUS_SESSION_BUS_ADDRESS";

    /// `mode`: unlocked, locked or absent.
    explicit KeyringSession(const QString& mode)
        : previousBus_(qgetenv(kBusVariable)) {
        // The session lasts until the command's input ends, also when this process dies.
        const QString command =
            QStringLiteral("echo \"$%1\"; cat >/dev/null").arg(QLatin1String(kBusVariable));
        process_.setProcessChannelMode(QProcess::SeparateChannels);
        process_.setStandardErrorFile(QProcess::nullDevice());
        process_.start(support("with-keyring"), {mode, QStringLiteral("sh"), QStringLiteral("-c"), command});
        process_.waitForReadyRead();
        qputenv(kBusVariable, process_.readLine().trimmed());
    }

    ~KeyringSession() {
        prompter_.closeWriteChannel();
        prompter_.waitForFinished();
        replacement_.terminate();
        replacement_.waitForFinished();
        end();
        if (previousBus_.isNull())
            qunsetenv(kBusVariable);
        else
            qputenv(kBusVariable, previousBus_);
    }

    KeyringSession(const KeyringSession&) = delete;
    KeyringSession& operator=(const KeyringSession&) = delete;

    /// Ends bus and keyring; the process stays without one.
    void end() {
        process_.closeWriteChannel();
        process_.waitForFinished();
    }

    /// Answers the keyring's prompts from now on; the empty password refuses.
    void answerPrompts(const QString& password) {
        prompter_.start(support("keyring-prompter"), {password});
        prompter_.waitForReadyRead();
    }

    /// Locks the default keyring.
    void lock() {
        run(QStringLiteral("dbus-send"),
            {QStringLiteral("--session"), QStringLiteral("--print-reply"),
             QStringLiteral("--dest=org.freedesktop.secrets"), QStringLiteral("/org/freedesktop/secrets"),
             QStringLiteral("org.freedesktop.Secret.Service.Lock"),
             QStringLiteral("array:objpath:/org/freedesktop/secrets/aliases/default")});
    }

    /// Deletes the default keyring, as if the user had never had one.
    void deleteKeyring() {
        run(QStringLiteral("dbus-send"), {QStringLiteral("--session"), QStringLiteral("--print-reply"),
                                          QStringLiteral("--dest=org.freedesktop.secrets"),
                                          QStringLiteral("/org/freedesktop/secrets/aliases/default"),
                                          QStringLiteral("org.freedesktop.Secret.Collection.Delete")});
    }

    /// Puts another keyring process, with the same keyring, in the place of the first.
    void restartKeyring() {
        const QByteArray previous = keyringOwner();
        // The bus lies in the session's run folder.
        const QString home = QString::fromLocal8Bit(qgetenv(kBusVariable))
                                 .section(QLatin1Char('='), 1)
                                 .section(QStringLiteral("/run/bus"), 0, 0);
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home + QStringLiteral("/run"));
        environment.insert(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/data"));
        replacement_.setProcessEnvironment(environment);
        replacement_.setStandardErrorFile(QProcess::nullDevice());
        replacement_.setStandardOutputFile(QProcess::nullDevice());
        replacement_.start(QStringLiteral("gnome-keyring-daemon"),
                           {QStringLiteral("--replace"), QStringLiteral("--foreground"),
                            QStringLiteral("--unlock"), QStringLiteral("--components=secrets")});
        replacement_.write(kPassword);
        replacement_.closeWriteChannel();
        waitUntil([&] {
            const QByteArray owner = keyringOwner();
            return owner != previous && owner.startsWith(':');
        });
    }

    /// Runs secret-tool, another program of the desktop, and returns what it prints.
    static QByteArray secretTool(const QStringList& arguments, const QByteArray& input = {}) {
        return run(QStringLiteral("secret-tool"), arguments, input);
    }

private:
    /// The keyring's own name on the bus, or an error.
    static QByteArray keyringOwner() {
        return run(QStringLiteral("dbus-send"),
                   {QStringLiteral("--session"), QStringLiteral("--print-reply=literal"),
                    QStringLiteral("--dest=org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                    QStringLiteral("org.freedesktop.DBus.GetNameOwner"),
                    QStringLiteral("string:org.freedesktop.secrets")})
            .trimmed();
    }

    static QString support(const char* name) {
        return QStringLiteral(QUILLMARK_SOURCE_DIR "/tests/support/") + QLatin1String(name);
    }

    static QByteArray run(const QString& program, const QStringList& arguments,
                          const QByteArray& input = {}) {
        QProcess process;
        // Qt hands arguments over in UTF-8, whatever the machine's own locale.
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start(program, arguments);
        process.write(input);
        process.closeWriteChannel();
        process.waitForFinished();
        return process.readAll();
    }

    const QByteArray previousBus_;
    QProcess process_;
    QProcess prompter_;
    QProcess replacement_;
};

} // namespace test_support
