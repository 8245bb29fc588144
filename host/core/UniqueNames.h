#pragma once

#include <QtCore/QSet>
#include <QtCore/QString>

#include <vector>

namespace host {

/// The part of a file name before its extension: up to the last dot, unless that dot begins the name.
QString stemOf(const QString& fileName);

/// The name of the file that a plug-in makes of an image offered as `name`: STEM.jpg.
QString preparedName(const QString& name);

/// What two names have in common whose prepared files have the same name, if only for a file system without
/// letter cases.
QString stemKey(const QString& name);

/// With "_" in place of control characters, which FTP can't send.
QString withoutControls(QString text);

/// The names under which files are offered to a plug-in that writes each as STEM.jpg.
///
/// The first file of a stem keeps its name; every further one, also when only the letters' case differs,
/// gets "-2", "-3"... after the stem, passing over the stems of all other files. The answer is as long as
/// `fileNames`, and no two of its stems are equal in any case of their letters, nor is one among `reserved`,
/// which holds keys of stems. Control characters become "_", and a stem is shortened so far that no STEM.jpg
/// is longer than a file's name may be.
std::vector<QString> uniqueNames(const std::vector<QString>& fileNames, const QSet<QString>& reserved = {});

} // namespace host
