// What Qt's own image class makes of the job of prepare_images: qt_images BOX QUALITY FOLDER FILE...
//
// BOX as there; QUALITY is the encoder's, 1 to 100.

#include <QtCore/QFile>
#include <QtGui/QColorSpace>
#include <QtGui/QGuiApplication>
#include <QtGui/QImageReader>

#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kFirstFile = 4;

QImage prepared(const QString& path, const QString& box) {
    QImageReader reader(path);
    QImageReader::setAllocationLimit(0);
    QImage image = reader.read();
    if (box != QLatin1String("own"))
        image = image.scaled(box.section(QLatin1Char('x'), 0, 0).toInt(),
                             box.section(QLatin1Char('x'), 1).toInt(), Qt::KeepAspectRatio,
                             Qt::SmoothTransformation);
    image.convertToColorSpace(QColorSpace::SRgb);
    return image;
}

} // namespace

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    for (int i = kFirstFile; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[3]) + QStringLiteral("/%1.jpg").arg(i);
        if (!prepared(QFile::decodeName(argv[i]), QString::fromLocal8Bit(argv[1]))
                 .save(path, "jpg", std::atoi(argv[2]))) {
            std::fprintf(stderr, "qt_images: %s could not be prepared\n", argv[i]);
            return EXIT_FAILURE;
        }
    }
}
