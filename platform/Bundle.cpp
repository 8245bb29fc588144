#include "platform/Bundle.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtUiTools/QUiLoader>
#include <QtWidgets/QWidget>

namespace platform {

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
    QUiLoader loader;
    loader.setWorkingDirectory(QDir(resourcesPath()));
    return std::unique_ptr<QWidget>(loader.load(&file));
}

} // namespace platform
