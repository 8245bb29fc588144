#include "host/core/UniqueNames.h"

#include <QtCore/QHash>

namespace host {

namespace {

const QString kPreparedExtension = QStringLiteral(".jpg");
/// In UTF-8, on any usual file system.
constexpr qsizetype kLongestFileName = 255;
constexpr QChar kInPlaceOfControl = u'_';
constexpr int kFirstNumber = 2;

/// What two stems have in common that a file system without letter cases takes for one name.
QString key(const QString& stem) {
    return stem.toCaseFolded();
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

QString stemKey(const QString& name) {
    return key(stemOf(name));
}

QString withoutControls(QString text) {
    for (QChar& character : text) {
        if (character.category() == QChar::Other_Control)
            character = kInPlaceOfControl;
    }
    return text;
}

std::vector<QString> uniqueNames(const std::vector<QString>& fileNames, const QSet<QString>& reserved) {
    const auto usable = [](const QString& stem) { return stemWith({}, withoutControls(stem)); };
    // All stems that files bring along are taken before any is made up: a made-up one must not push a
    // later file out of its own name.
    QSet<QString> taken = reserved;
    for (const QString& name : fileNames) {
        if (const QString stem = stemOf(name); usable(stem) == stem)
            taken.insert(key(stem));
    }

    std::vector<QString> names;
    names.reserve(fileNames.size());
    QSet<QString> given = reserved;
    QHash<QString, int> triedNumbers;
    for (const QString& name : fileNames) {
        const QString own = stemOf(name);
        const QString wanted = usable(own);
        QString stem = wanted;
        const bool isFree = wanted == own || !taken.contains(key(wanted));
        if (!isFree || given.contains(key(wanted))) {
            // What was taken for an equal stem is so still.
            int& tried = triedNumbers[wanted];
            while (taken.contains(key(stem)))
                stem = stemWith(QLatin1Char('-') + QString::number(kFirstNumber + tried++), wanted);
        }
        taken.insert(key(stem));
        given.insert(key(stem));
        names.push_back(stem + withoutControls(name.mid(own.size())));
    }
    return names;
}

} // namespace host
