#include "host/core/JournalFolder.h"
#include "host/core/Locations.h"
#include "host/desktop/MainWindow.h"

#include <QtGui/QIcon>
#include <QtWidgets/QApplication>

#include <unistd.h>

#include <cstdio>
#include <string_view>

namespace {

constexpr const char* kUsage = "Usage: quillmark [FILE|FOLDER]...\n";

/// The arguments that Qt has left, byte by byte, as the system keeps file names.
std::vector<QByteArray> paths(int argc, char** argv) {
    std::vector<QByteArray> paths;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        if (!optionsEnded && std::string_view(argv[i]) == "--")
            optionsEnded = true;
        else
            paths.emplace_back(argv[i]);
    }
    return paths;
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        if (std::string_view(argv[i]) == "--version")
            return std::puts("quillmark " QUILLMARK_VERSION) < 0;
        if (std::string_view(argv[i]) == "--help")
            return std::fputs(kUsage, stdout) < 0;
    }
    QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Quillmark"));
    QApplication::setDesktopFileName(QStringLiteral("quillmark"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("quillmark")));
    host::desktop::MainWindow window(
        {host::installedOrBuiltBundle().value_or(QString()), host::userJournalFolder(), nullptr, nullptr});
    window.open(paths(argc, argv));
    window.show();
    const int status = QApplication::exec();
    // Workers of the plug-in may still wait for an answer: nothing is taken down around them.
    fflush(nullptr);
    _exit(status);
}
