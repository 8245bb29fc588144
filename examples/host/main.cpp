// example-host BUNDLE PICTURE...: exports pictures through the plug-in in BUNDLE. Each picture's project is
// the folder that it is in.

#include "examples/host/ExportDialog.h"

#include <QtCore/QFileInfo>
#include <QtWidgets/QApplication>

#include <cstdio>

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() < 3) {
        std::fputs("usage: example-host BUNDLE PICTURE...\n", stderr);
        return 2;
    }
    std::vector<Picture> pictures;
    for (const QString& path : arguments.mid(2)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "example-host: %s: %s\n", qPrintable(path), qPrintable(file.errorString()));
            return 1;
        }
        const QFileInfo info(path);
        pictures.push_back({file.readAll(), info.fileName(), info.absoluteDir().dirName()});
    }

    APIManager apiManager;
    QString error;
    auto dialog = std::make_unique<ExportDialog>(std::move(pictures));
    if (!dialog->loadPlugIn(apiManager, arguments.at(1), &error)) {
        std::fprintf(stderr, "example-host: %s\n", qPrintable(error));
        return 1;
    }
    return dialog->exec() == QDialog::Accepted ? 0 : 1;
}
