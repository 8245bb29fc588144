#pragma once

#include "host/core/ExportJournal.h"
#include "host/core/JournalFolder.h"

#include <QtCore/QString>

#include <functional>
#include <memory>
#include <optional>
#include <variant>

namespace host::cli {

/// There is nothing to go on with.
struct NoResumption {
    QString reason;
    bool isWrongUsage = false; ///< No such export was ever begun, or there is more than one.
};

/// The export to `service` and `account` that `--resume` goes on with: to `event`, an id or a name, or to the
/// only event for which something is left. Of the exports to one event it is the newest that has something
/// left and is not running, else the newest. `damaged` is told of each journal in `folder` that can't be
/// read.
std::variant<std::shared_ptr<ExportJournal>, NoResumption>
findResumption(const QString& folder, const QString& service, const QString& account,
               const std::optional<QString>& event, const std::function<void(const FoundJournal&)>& damaged);

/// What going on with the export means, for a person to read.
QString description(const ExportRecord& record);

/// How many images are left and how to go on, for the end of a run; empty where nothing is left.
QString leftOver(const ExportRecord& record);

} // namespace host::cli
