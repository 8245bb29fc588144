#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QFile>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

/// Tells the fake plug-in what to do, as long as it lives, and reads what the plug-in was told. Also a folder
/// for a test's files.
class FakePlugInScript {
public:
    explicit FakePlugInScript(const QByteArray& words = {}) {
        tell(words);
        qputenv("FAKE_PLUG_IN_LOG", QFile::encodeName(logPath()));
    }
    ~FakePlugInScript() {
        qunsetenv("FAKE_PLUG_IN");
        qunsetenv("FAKE_PLUG_IN_LOG");
    }
    FakePlugInScript(const FakePlugInScript&) = delete;
    FakePlugInScript& operator=(const FakePlugInScript&) = delete;

    static QString bundlePath() { return QStringLiteral(FAKE_BUNDLE_DIR); }

    void tell(const QByteArray& words) { qputenv("FAKE_PLUG_IN", words); }

    QStringList log() const {
        QFile file(logPath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

    /// Writes a file that any host can read, and returns its path.
    QByteArray file(const QString& name, const QByteArray& contents = "pixels") const {
        QFile file(folder_.filePath(name));
        if (file.open(QIODevice::WriteOnly))
            file.write(contents);
        return QFile::encodeName(file.fileName());
    }

    /// What every host asks and tells while its export dialog is open, in this order.
    static QStringList callsToOpen() {
        return QStringLiteral("settingsView firstView lastView willBeActivated allowsOnlyPlugInPresets "
                              "allowsMasterExport allowsVersionExport wantsFileNamingControls "
                              "wantsDestinationPathPrompt destinationPath defaultDirectory")
            .split(QLatin1Char(' '));
    }

    QString folderName() const { return folder_.path().section(QLatin1Char('/'), -1); }
    QString path(const QString& name) const { return folder_.filePath(name); }

private:
    QString logPath() const { return folder_.filePath(QStringLiteral("plug-in.log")); }
    QTemporaryDir folder_;
};
