#pragma once

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtGui/QImage>

#include <vector>

/// A folder "Smith" with pictures made for a test.
class PhotographFolder {
public:
    PhotographFolder() { QDir(root_.path()).mkdir(QStringLiteral("Smith")); }

    QString path() const { return root_.filePath(QStringLiteral("Smith")); }
    QByteArray bytes() const { return QFile::encodeName(path()); }
    QString filePath(const QString& name) const { return path() + QLatin1Char('/') + name; }

    QByteArray picture(const QString& name, const QSize& size = {60, 40}, QColor color = Qt::darkGreen) {
        QImage image(size, QImage::Format_RGB32);
        image.fill(color);
        image.save(filePath(name));
        return QFile::encodeName(filePath(name));
    }
    QByteArray file(const QString& name, const QByteArray& contents) {
        QFile written(filePath(name));
        if (written.open(QIODevice::WriteOnly))
            written.write(contents);
        return QFile::encodeName(filePath(name));
    }

private:
    const QTemporaryDir root_;
};
