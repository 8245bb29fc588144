// Uploads files as an export does, and nothing else: upload_files PORT FOLDER FILE...
//
// The server listens on loopback and takes anonymous users. The files are deleted when it has confirmed them:
// give links.

#include "tests/support/RecordingHost.h"

#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMetaObject>
#include <QtWidgets/QApplication>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kFirstFile = 3;

[[noreturn]] void fail(const char* reason) {
    std::fprintf(stderr, "upload_files: %s\n", reason);
    std::exit(EXIT_FAILURE);
}

} // namespace

int main(int argc, char** argv) {
    if (argc <= kFirstFile)
        fail("usage: upload_files PORT FOLDER FILE...");
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    test_support::RecordingHost host;
    host.imageCount = static_cast<std::uint32_t>(argc - kFirstFile);
    host.useService(
        QStringLiteral("ftp.quillmark.example:21:127.0.0.1:%1").arg(QString::fromLocal8Bit(argv[1])));
    const std::shared_ptr<Quillmark> plugIn = host.makePlugIn();
    if (!plugIn)
        fail("no plug-in");
    const QString folder = QFile::decodeName(argv[2]) + QLatin1Char('/');
    plugIn->ftpPaths = std::make_shared<std::deque<std::optional<QString>>>();
    plugIn->ftpPaths->push_back(folder);
    plugIn->exportedImagePaths = std::make_shared<QStringList>();
    plugIn->exportFTPFolders = std::make_shared<QStringList>();
    for (int i = kFirstFile; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        plugIn->exportedImagePaths->append(path);
        plugIn->exportFTPFolders->append(folder);
        plugIn->totalBytes += static_cast<std::uint64_t>(QFileInfo(path).size());
    }
    QEventLoop loop;
    host.onCall = [&](const QString& call) {
        if (call.startsWith(QLatin1String("uploadEnded")))
            QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    };
    plugIn->exportManagerDidFinishExport();
    loop.exec();
    if (host.count(QStringLiteral("uploadEnded 1")) != 1)
        fail("not every file was uploaded");
    std::_Exit(EXIT_SUCCESS); // The finishing request, due in three seconds, has nobody to answer it.
}
