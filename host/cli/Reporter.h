#pragma once

#include "host/cli/Outcome.h"
#include "host/cli/ProgressLine.h"
#include "host/core/AnsweringAlertPresenter.h"
#include "host/core/ExportRecord.h"
#include "host/core/Lists.h"

#include <mutex>

namespace host::cli {

/// Tells on standard output, as text or as JSON lines, what happens; on standard error what went wrong and
/// every alert; and on a terminal how far the export is. Any thread.
class Reporter {
public:
    /// `showsProgress`: on a terminal, where there is one.
    Reporter(bool json, bool showsProgress);

    /// The text of the settings view's status line, at each change.
    void status(const QString& text);
    /// The lists have been loaded; as text they are printed only where they were asked for.
    void lists(const Lists& lists, bool askedFor);
    void alert(const hostapi::Alert& alert, AlertModality modality);
    /// What a resumed export has left.
    void resumption(const ExportRecord& record);
    /// The plug-in's call of its export manager.
    void hostCall(const char* call);
    /// `source` and `name` are file names, before and after the plug-in.
    void image(std::uint32_t index, const QString& source, const QString& name, bool isPrepared);
    void progress(const hostapi::ExportProgress& progress);
    /// A result for a person to read.
    void result(const QString& text);
    /// What went wrong, in the command's own words.
    void complaint(const QString& text);
    /// The last of all: nothing is told after it.
    void end(Outcome outcome);

private:
    void toOutput(const QByteArray& line);
    void toError(const QByteArray& line);

    const bool json_;
    std::recursive_timed_mutex mutex_;
    ProgressLine progressLine_;
    bool hasEnded_ = false;
};

} // namespace host::cli
