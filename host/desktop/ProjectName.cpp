#include "host/desktop/ProjectName.h"

#include <QtCore/QCoreApplication>

#include <algorithm>

namespace host::desktop {

namespace {

/// What the usual file systems allow.
constexpr qsizetype kMostBytes = 255;

QString tr(const char* text) {
    return QCoreApplication::translate("ProjectName", text);
}

bool isControl(QChar character) {
    return character.category() == QChar::Other_Control || character == QChar::LineSeparator ||
           character == QChar::ParagraphSeparator;
}

} // namespace

QString projectNameFault(const QString& name) {
    if (name.isEmpty())
        return tr("A project needs a name.");
    if (name.contains(QLatin1Char('/')))
        return tr("A project's name cannot contain a slash: it becomes the name of a folder.");
    if (name == QLatin1String(".") || name == QLatin1String(".."))
        return tr("A project cannot be called “%1”: no folder can be.").arg(name);
    if (std::any_of(name.begin(), name.end(), isControl))
        return tr("A project's name is a single line without control characters.");
    if (name.toUtf8().size() > kMostBytes)
        return tr("This name is too long for a folder.");
    return {};
}

} // namespace host::desktop
