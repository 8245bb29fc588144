#pragma once

#include "host/core/ExportRecord.h"

#include <QtCore/QString>

#include <functional>
#include <optional>
#include <vector>

namespace host {

/// A journal that lies in a folder.
struct FoundJournal {
    QString path;
    bool isHeld = false; ///< Another process, or this one, has it open: its export may be running.
    std::optional<ExportRecord> record; ///< None where the file is no journal of this version, or is damaged.
    QString error;                      ///< Why there is no record.
};

/// Where a user's journals lie: Quillmark/exports below $XDG_STATE_HOME, or below ~/.local/state.
QString userJournalFolder();

/// The journals in `folder`, the newest export first. Any thread.
///
/// Those whose first line (see `journal_format::readFirstLine`) tells that they are not wanted are passed
/// over: the rest of a journal takes much longer.
std::vector<FoundJournal>
journalsIn(const QString& folder,
           const std::function<bool(const ExportRecord& firstLine)>& areWanted = nullptr);

/// The file beside the prepared ones of a journal's last try that stays as long as nobody but the plug-in's
/// upload takes files away from there.
QString folderMarkerPath(const QString& journalPath, const ExportRecord& record);

/// Notes down, for every journal in `folder` that nobody holds, what the plug-in's export folders tell about
/// it, whatever service it belongs to. Making a plug-in object empties such a folder, so call it before:
/// whoever holds one of the others will conclude nothing from its folder any more. Any thread.
void reconcileJournals(const QString& folder);

/// Makes the folder, for its user alone, where it is missing.
bool makeJournalFolder(const QString& folder, QString& error);

/// A new journal's path in `folder`.
QString newJournalPath(const QString& folder, const QDateTime& begun);

/// Of the journals that nobody holds, removes those begun before `newest`, which is on the disk, that nobody
/// needs beside it: settled ones of the same event, or older than a month, and those without an unconfirmed
/// image all of whose remaining images are also images of `newest`, on their way to the same place.
void removeSupersededJournals(const QString& folder, const ExportRecord& newest);

} // namespace host
