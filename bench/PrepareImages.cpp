// Prepares photographs as an export does, and nothing else: prepare_images BOX QUALITY FOLDER [FILE...]
//
// BOX is WIDTHxHEIGHT, or "own" for every image's own size. One process for all images, as in a host; without
// any, the process that is about to prepare some.

#include "host/core/ImageRenderer.h"
#include "tests/support/RecordingHost.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtWidgets/QApplication>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kFirstFile = 4;

[[noreturn]] void fail(const QString& reason) {
    std::fprintf(stderr, "prepare_images: %s\n", qPrintable(reason));
    std::exit(EXIT_FAILURE);
}

void setBox(Quillmark& plugIn, const QString& box) {
    if (box == QLatin1String("own"))
        return;
    plugIn.setDoResizeImages(true);
    plugIn.maxWidthValue = box.section(QLatin1Char('x'), 0, 0).toInt();
    plugIn.maxHeightValue = box.section(QLatin1Char('x'), 1).toInt();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < kFirstFile)
        fail(QStringLiteral("usage: prepare_images BOX QUALITY FOLDER [FILE...]"));
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    test_support::RecordingHost host;
    host.imageCount = static_cast<std::uint32_t>(argc - kFirstFile);
    const std::shared_ptr<Quillmark> plugIn = host.makePlugIn();
    if (!plugIn)
        fail(QStringLiteral("no plug-in"));
    setBox(*plugIn, QString::fromLocal8Bit(argv[1]));
    plugIn->imageQuality = std::atof(argv[2]);
    plugIn->exportManagerWillBeginExportToPath(QFile::decodeName(argv[3]));
    plugIn->setChosenEventId(QStringLiteral("77"));
    plugIn->setChosenCategory(QStringLiteral("Ceremony"));
    for (int i = kFirstFile; i < argc; ++i) {
        QString error;
        const std::optional<host::RenderedImage> image = host::renderImage(argv[i], error);
        if (!image)
            fail(error);
        const auto index = static_cast<std::uint32_t>(i - kFirstFile);
        plugIn->exportManagerShouldWriteImageData(image->data, QStringLiteral("%1.jpg").arg(index), index);
    }
    // The list is made for the first image.
    const auto prepared = plugIn->exportedImagePaths ? plugIn->exportedImagePaths->size() : 0;
    if (prepared != argc - kFirstFile)
        fail(QStringLiteral("not every image was prepared"));
}
