#include "platform/Bundle.h"

#include <QtCore/QBuffer>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QXmlStreamReader>
#include <QtUiTools/QUiLoader>
#include <QtWidgets/QWidget>

namespace platform {

namespace {

/// True for a whole interface description of one of these widgets. QUiLoader writes to the console about
/// any other, and nobody could do anything about it there.
bool describesInterface(const QByteArray& description, const QStringList& widgets) {
    QXmlStreamReader reader(description);
    if (!reader.readNextStartElement() || reader.name() != QLatin1String("ui"))
        return false;
    bool hasWidget = false;
    while (reader.readNextStartElement()) {
        if (reader.name() == QLatin1String("widget"))
            hasWidget = widgets.contains(reader.attributes().value(QLatin1String("class")));
        reader.skipCurrentElement();
    }
    return hasWidget && !reader.hasError();
}

} // namespace

Bundle::Bundle(const QString& path)
    : path_(QDir(path).absolutePath()) {}

QString Bundle::resourcesPath() const {
    return path_ + QStringLiteral("/Resources");
}

std::optional<QString> Bundle::pathForResource(const QString& name, const QString& type) const {
    const QString path = resourcesPath() + QLatin1Char('/') + name + QLatin1Char('.') + type;
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    return path;
}

std::unique_ptr<QWidget> Bundle::loadInterface(const QString& name) const {
    const auto path = pathForResource(name, QStringLiteral("ui"));
    if (!path)
        return nullptr;
    QFile file(*path);
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    QByteArray description = file.readAll();
    QUiLoader loader;
    if (!describesInterface(description, loader.availableWidgets()))
        return nullptr;
    loader.setWorkingDirectory(QDir(resourcesPath()));
    QBuffer buffer(&description);
    buffer.open(QIODevice::ReadOnly);
    return std::unique_ptr<QWidget>(loader.load(&buffer));
}

} // namespace platform
