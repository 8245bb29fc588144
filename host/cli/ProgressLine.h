#pragma once

#include "hostapi/ExportProgress.h"

namespace host::cli {

/// One line of a terminal that shows how far the export is, and makes room for other output.
class ProgressLine {
public:
    /// `terminal`: a file descriptor; -1 shows nothing.
    explicit ProgressLine(int terminal);

    /// Replaces what is shown.
    void show(const hostapi::ExportProgress& progress);
    /// Takes the line off the terminal until it is shown again.
    void erase();

private:
    const int terminal_;
    bool isShown_ = false;
};

} // namespace host::cli
