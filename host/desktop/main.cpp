#include "host/core/FileList.h"
#include "host/core/JournalFolder.h"
#include "host/core/Locations.h"
#include "host/desktop/MainWindow.h"

#include <QtGui/QIcon>
#include <QtWidgets/QApplication>

#include <unistd.h>

#include <cstdio>
#include <optional>
#include <string_view>

namespace {

constexpr const char* kUsage = "Usage: quillmark [--files0-from FILE] [FILE|FOLDER]...\n";
constexpr std::string_view kListOption = "--files0-from";
constexpr int kWrongUsage = 2;

/// Walks through the arguments that Qt has left, byte by byte, as the system keeps file names.
class Arguments {
public:
    Arguments(int argc, char** argv)
        : next_(argv + 1)
        , end_(argv + argc) {}

    /// The files and folders that they name; none, with `error`, where they can't be followed.
    std::optional<std::vector<QByteArray>> paths(QString& error) {
        std::vector<QByteArray> paths;
        while (next_ != end_) {
            const std::string_view argument = *next_++;
            if (argument == "--") {
                paths.insert(paths.end(), next_, end_);
                break;
            }
            if (!argument.starts_with('-') || argument == "-")
                paths.emplace_back(argument.data());
            else if (!addListed(argument, paths, error))
                return std::nullopt;
        }
        return paths;
    }

private:
    bool addListed(std::string_view option, std::vector<QByteArray>& paths, QString& error) {
        const std::size_t equals = option.find('=');
        if (option.substr(0, equals) != kListOption) {
            error = QStringLiteral("there is no option \"%1\"").arg(QString::fromUtf8(option.data()));
            return false;
        }
        QByteArray value;
        if (equals != option.npos)
            value = option.data() + equals + 1;
        else if (next_ != end_)
            value = *next_++;
        const auto listed = host::fileList(value, error);
        if (listed)
            paths.insert(paths.end(), listed->begin(), listed->end());
        else
            error =
                QStringLiteral("the files of \"%1\" can't be read: %2").arg(QString::fromUtf8(value), error);
        return listed.has_value();
    }

    char** next_;
    char** const end_;
};

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        if (std::string_view(argv[i]) == "--version")
            return std::puts("quillmark " QUILLMARK_VERSION) < 0;
        if (std::string_view(argv[i]) == "--help")
            return std::fputs(kUsage, stdout) < 0;
    }
    QApplication application(argc, argv);
    QString error;
    const auto paths = Arguments(argc, argv).paths(error);
    if (!paths) {
        std::fprintf(stderr, "quillmark: %s\n%s", qUtf8Printable(error), kUsage);
        return kWrongUsage;
    }
    QApplication::setApplicationVersion(QStringLiteral(QUILLMARK_VERSION));
    QApplication::setApplicationDisplayName(QStringLiteral("Quillmark"));
    QApplication::setDesktopFileName(QStringLiteral("quillmark"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("quillmark")));
    host::desktop::MainWindow window(
        {host::installedOrBuiltBundle().value_or(QString()), host::userJournalFolder(), nullptr, nullptr});
    window.open(*paths);
    window.show();
    const int status = QApplication::exec();
    // Workers of the plug-in may still wait for an answer: nothing is taken down around them.
    fflush(nullptr);
    _exit(status);
}
