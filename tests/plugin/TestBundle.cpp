#include "tests/plugin/TestBundle.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

namespace {

const QString kResources = QStringLiteral("/Resources/");

QString builtResources() {
    return QStringLiteral(QUILLMARK_BUNDLE_DIR) + kResources;
}

} // namespace

TestBundle::TestBundle() {
    QDir().mkpath(path() + kResources);
    for (const QString& resource : QDir(builtResources()).entryList(QDir::Files))
        restore(resource);
}

void TestBundle::remove(const QString& resource) {
    QFile::remove(pathOf(resource));
}

void TestBundle::write(const QString& resource, const QByteArray& content) {
    QFile file(pathOf(resource));
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
}

void TestBundle::restore(const QString& resource) {
    remove(resource);
    QFile::copy(builtResources() + resource, pathOf(resource));
}

QString TestBundle::pathOf(const QString& resource) const {
    return path() + kResources + resource;
}
