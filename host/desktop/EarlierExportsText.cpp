#include "host/desktop/EarlierExportsText.h"

#include <QtCore/QCoreApplication>

#include <algorithm>

namespace host::desktop {

namespace {

/// So that a message fits onto a screen.
constexpr std::size_t kMostNamed = 8;

QString tr(const char* text) {
    return QCoreApplication::translate("EarlierExportsText", text);
}

QString unfinishedNotice(const std::vector<EarlierExports::Journal>& journals) {
    const QString& last = journals.front().text;
    return journals.size() == 1
               ? tr("An export is not complete: %1.").arg(last)
               : tr("%1 exports are not complete. See File, Unfinished Exports. The last one: %2.")
                     .arg(QString::number(journals.size()), last);
}

QString unreadableNotice(std::size_t count) {
    return count == 1
               ? tr("The journal of an earlier export cannot be read. What it has left is not known.")
               : tr("The journals of %1 earlier exports cannot be read. What they have left is not known.")
                     .arg(count);
}

} // namespace

QString earlierExportsNotice(const EarlierExports& exports) {
    QStringList texts;
    if (!exports.unfinished.empty())
        texts << unfinishedNotice(exports.unfinished);
    if (!exports.unreadable.empty())
        texts << unreadableNotice(exports.unreadable.size());
    return texts.join(QLatin1Char(' '));
}

QString unreadableJournalsText(const std::vector<EarlierExports::Journal>& journals) {
    QStringList lines;
    for (std::size_t i = 0; i < std::min(journals.size(), kMostNamed); ++i)
        lines << tr("%1: %2.").arg(journals[i].path, journals[i].text);
    if (journals.size() > kMostNamed)
        lines << tr("And %1 more.").arg(journals.size() - kMostNamed);
    lines << QString()
          << tr("Photographs of these exports may be missing at the service. A file that another version of "
                "the "
                "program has kept can still be used by that one; a damaged one is of no use, and can be "
                "deleted.");
    return lines.join(QLatin1Char('\n'));
}

} // namespace host::desktop
