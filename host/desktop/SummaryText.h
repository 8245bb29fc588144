#pragma once

#include "host/core/ExportRecord.h"
#include "host/desktop/ExportRun.h"

#include <QtCore/QString>

#include <optional>

namespace host::desktop {

/// What the user is told about an export: one line each of how it ended and where it went, and then the
/// counts.
struct SummaryText {
    QString headline;
    QString destination;
    QString details;
};

/// `end` and `reason`: of the export that has just ended; without `end`, the record is an earlier one's.
SummaryText summaryText(const ExportRecord& record, std::optional<ExportRun::End> end, const QString& reason);

/// A name that fits into a line, with an ellipsis where it is cut.
QString shortened(const QString& name);

/// "Smith Wedding, 24.12.2024 18:30: 3 of 12 photographs remain."
QString unfinishedLine(const ExportRecord& record);

} // namespace host::desktop
