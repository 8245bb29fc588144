#pragma once

#include "host/core/ExportRecord.h"

#include <QtCore/QString>

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
std::vector<FoundJournal> journalsIn(const QString& folder);

/// Notes down, for every journal in `folder` that nobody holds, what the plug-in's export folders tell about
/// it, whatever service it belongs to: making a plug-in object empties such a folder, so call it before. Any
/// thread.
void reconcileJournals(const QString& folder);

/// Makes the folder, for its user alone, where it is missing.
bool makeJournalFolder(const QString& folder, QString& error);

/// A new journal's path in `folder`.
QString newJournalPath(const QString& folder, const QDateTime& begun);

/// Removes the journals that nobody holds and that nobody needs beside `newest`, which is on the disk:
/// settled ones of the same service, account and event, or older than a month, and those all of whose
/// remaining images are also images of `newest`, on their way to the same place.
void removeSupersededJournals(const QString& folder, const ExportRecord& newest);

} // namespace host
