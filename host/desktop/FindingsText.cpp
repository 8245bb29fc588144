#include "host/desktop/FindingsText.h"

#include <QtCore/QCoreApplication>

namespace host::desktop {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("FindingsText", text);
}

QString unreadText(const std::vector<UnreadFolder>& folders) {
    const UnreadFolder& first = folders.front();
    return folders.size() == 1
               ? tr("“%1” could not be read, or not to its end: %2.").arg(first.path, first.error)
               : tr("%1 folders could not be read, or not to their end. The first one is “%2”: %3.")
                     .arg(QString::number(folders.size()), first.path, first.error);
}

QString noneText(const QStringList& folderNames) {
    return folderNames.size() == 1 ? tr("There are no photographs in “%1” itself.").arg(folderNames.first())
                                   : tr("There are no photographs in these folders themselves.");
}

} // namespace

QString passedOverText(const FoundPhotographs& found) {
    QStringList texts;
    if (!found.unreadFolders.empty())
        texts << unreadText(found.unreadFolders);
    else if (found.photographs.empty() && !found.folderNames.isEmpty())
        texts << noneText(found.folderNames);
    if (found.othersCount == 1)
        texts << tr("1 file is no picture, or is not there, and was passed over.");
    else if (found.othersCount > 1)
        texts
            << tr("%1 files are no pictures, or are not there, and were passed over.").arg(found.othersCount);
    return texts.join(QLatin1Char(' '));
}

QString emptyTableText(const QStringList& folderNames) {
    if (folderNames.isEmpty())
        return tr("Open a folder, or drop photographs here.");
    return noneText(folderNames) + QLatin1Char('\n') +
           tr("JPEG, PNG, TIFF, WebP and HEIF files are shown. Open another folder, or drop photographs "
              "here.");
}

} // namespace host::desktop
