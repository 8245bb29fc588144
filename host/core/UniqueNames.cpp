#include "host/core/UniqueNames.h"

#include <QtCore/QSet>

namespace host {

namespace {

/// What two stems have in common that a file system without letter cases takes for one name.
QString key(const QString& stem) {
    return stem.toCaseFolded();
}

} // namespace

QString stemOf(const QString& fileName) {
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? fileName.left(dot) : fileName;
}

std::vector<QString> uniqueNames(const std::vector<QString>& fileNames) {
    // All stems that files bring along are taken before any is made up: a made-up one must not push a
    // later file out of its own name.
    QSet<QString> taken;
    for (const QString& name : fileNames)
        taken.insert(key(stemOf(name)));

    std::vector<QString> names;
    names.reserve(fileNames.size());
    QSet<QString> given;
    for (const QString& name : fileNames) {
        const QString stem = stemOf(name);
        if (!given.contains(key(stem))) {
            given.insert(key(stem));
            names.push_back(name);
            continue;
        }
        QString numbered;
        for (int number = 2; numbered.isEmpty() || taken.contains(key(numbered)); ++number)
            numbered = stem + QLatin1Char('-') + QString::number(number);
        taken.insert(key(numbered));
        given.insert(key(numbered));
        names.push_back(numbered + name.mid(stem.size()));
    }
    return names;
}

} // namespace host
