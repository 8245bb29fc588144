#include "host/cli/ProgressLine.h"

#include "host/cli/Output.h"
#include "host/cli/PrintableText.h"

#include <sys/ioctl.h>

namespace host::cli {

namespace {

constexpr int kUsualWidth = 80;
// ECMA-48: erase in line, from the cursor to the end.
constexpr const char* kEraseLine = "\r\x1b[K";

int widthOf(int terminal) {
    winsize size{};
    return ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualWidth;
}

QString percentage(const hostapi::ExportProgress& progress) {
    if (progress.indeterminateProgress || progress.totalValue == 0)
        return {};
    const double part = static_cast<double>(progress.currentValue) / static_cast<double>(progress.totalValue);
    // While images are prepared the value names the next image, and so ends behind the total.
    return QStringLiteral("  %1%").arg(static_cast<int>(100 * std::min(part, 1.0)));
}

} // namespace

ProgressLine::ProgressLine(int terminal)
    : terminal_(terminal) {}

void ProgressLine::show(const hostapi::ExportProgress& progress) {
    if (terminal_ < 0)
        return;
    const QString text = printable(progress.message) + percentage(progress);
    // A character in the last column would make some terminals begin a new line.
    writeAll(terminal_, kEraseLine + cutToWidth(text, widthOf(terminal_) - 1).toUtf8());
    isShown_ = true;
}

void ProgressLine::erase() {
    if (!isShown_)
        return;
    writeAll(terminal_, kEraseLine);
    isShown_ = false;
}

} // namespace host::cli
