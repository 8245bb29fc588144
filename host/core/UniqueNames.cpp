#include "host/core/UniqueNames.h"

#include <QtCore/QSet>

namespace host {

namespace {

const QString kPreparedExtension = QStringLiteral(".jpg");
/// In UTF-8, on any usual file system.
constexpr qsizetype kLongestFileName = 255;
constexpr QChar kInPlaceOfControl = u'_';

/// What two stems have in common that a file system without letter cases takes for one name.
QString key(const QString& stem) {
    return stem.toCaseFolded();
}

QString withoutControls(QString text) {
    for (QChar& character : text) {
        if (character.category() == QChar::Other_Control)
            character = kInPlaceOfControl;
    }
    return text;
}

/// So much of the stem that the prepared file's name, with `suffix` after the stem, is not too long. No
/// character is split.
QString stemWith(const QString& suffix, QString stem) {
    const qsizetype room = kLongestFileName - (suffix + kPreparedExtension).toUtf8().size();
    while (stem.toUtf8().size() > room)
        stem.chop(stem.back().isLowSurrogate() ? 2 : 1);
    return stem + suffix;
}

} // namespace

QString stemOf(const QString& fileName) {
    const qsizetype dot = fileName.lastIndexOf(QLatin1Char('.'));
    return dot > 0 ? fileName.left(dot) : fileName;
}

QString preparedName(const QString& name) {
    return stemOf(name) + kPreparedExtension;
}

std::vector<QString> uniqueNames(const std::vector<QString>& fileNames) {
    const auto usable = [](const QString& stem) { return stemWith({}, withoutControls(stem)); };
    // All stems that files bring along are taken before any is made up: a made-up one must not push a
    // later file out of its own name.
    QSet<QString> taken;
    for (const QString& name : fileNames) {
        if (const QString stem = stemOf(name); usable(stem) == stem)
            taken.insert(key(stem));
    }

    std::vector<QString> names;
    names.reserve(fileNames.size());
    QSet<QString> given;
    for (const QString& name : fileNames) {
        const QString own = stemOf(name);
        const QString wanted = usable(own);
        QString stem = wanted;
        const bool isFree = wanted == own || !taken.contains(key(wanted));
        if (!isFree || given.contains(key(wanted))) {
            for (int number = 2; taken.contains(key(stem)); ++number)
                stem = stemWith(QLatin1Char('-') + QString::number(number), wanted);
        }
        taken.insert(key(stem));
        given.insert(key(stem));
        names.push_back(stem + withoutControls(name.mid(own.size())));
    }
    return names;
}

} // namespace host
