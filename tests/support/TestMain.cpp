#include <QtCore/QDir>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtWidgets/QApplication>

#include <gtest/gtest.h>

namespace {

/// Puts everything that a program keeps for its user below `home`, so that no test meets another's or the
/// developer's own.
void moveIn(const QString& home) {
    for (const char* name :
         {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME", "XDG_CACHE_HOME", "TMPDIR"}) {
        const QString folder = home + QLatin1Char('/') + QString::fromLatin1(name);
        QDir().mkpath(folder);
        qputenv(name, QFile::encodeName(folder));
    }
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(home));
    qunsetenv("QUILLMARK_SERVICE_CONFIG");
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const QTemporaryDir home;
    moveIn(home.path());
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
