#include "host/cli/Reporter.h"

#include "host/cli/JSONLine.h"
#include "host/cli/Listing.h"
#include "host/cli/Output.h"
#include "host/cli/PrintableText.h"
#include "host/cli/Resumption.h"

#include <unistd.h>

#include <chrono>

namespace host::cli {

namespace {

/// How long the end waits for a line in the making: its reader may have stopped reading.
constexpr std::chrono::milliseconds kEndPatience{200};

int terminal() {
    for (const int output : {STDERR_FILENO, STDOUT_FILENO}) {
        if (isatty(output))
            return output;
    }
    return -1;
}

QString styleName(hostapi::AlertStyle style) {
    switch (style) {
    case hostapi::AlertStyle::Critical:
        return QStringLiteral("critical");
    case hostapi::AlertStyle::Informational:
        return QStringLiteral("informational");
    case hostapi::AlertStyle::Warning:
        break;
    }
    return QStringLiteral("warning");
}

QString modalityName(AlertModality modality) {
    return modality == AlertModality::Sheet ? QStringLiteral("sheet") : QStringLiteral("application");
}

} // namespace

Reporter::Reporter(bool json, bool showsProgress)
    : json_(json)
    , progressLine_(showsProgress ? terminal() : -1) {}

void Reporter::status(const QString& text) {
    if (json_)
        toOutput(JSONLine("status").add("text", text).line());
    else if (!text.isEmpty())
        toOutput(printable(text).toUtf8() + '\n');
}

void Reporter::lists(const Lists& lists, bool askedFor) {
    if (json_)
        toOutput(JSONLine("lists")
                     .add("events", lists.events)
                     .add("pricingTemplates", lists.pricingTemplates)
                     .line());
    else if (askedFor)
        toOutput(listing(lists).toUtf8());
}

void Reporter::alert(const hostapi::Alert& alert, AlertModality modality) {
    if (json_)
        toOutput(JSONLine("alert")
                     .add("style", styleName(alert.style))
                     .add("modality", modalityName(modality))
                     .add("message", alert.message)
                     .add("info", alert.informativeText)
                     .line());
    QString text = alert.message;
    if (alert.informativeText && !alert.informativeText->isEmpty())
        text += QStringLiteral(": ") + *alert.informativeText;
    toError(printable(text).toUtf8() + '\n');
}

void Reporter::resumption(const ExportRecord& record) {
    if (json_)
        toOutput(JSONLine("resume")
                     .add("eventId", record.choices.eventId)
                     .add("eventName", record.choices.eventName)
                     .add("total", std::uint64_t{record.images.size()})
                     .add("remaining", std::uint64_t{record.remaining().size()})
                     .add("confirmed", !record.lacksConfirmation())
                     .line());
    else
        toOutput(printable(description(record)).toUtf8() + '\n');
}

void Reporter::hostCall(const char* call) {
    if (json_)
        toOutput(JSONLine("host").add("call", QString::fromLatin1(call)).line());
}

void Reporter::image(std::uint32_t index, const QString& source, const QString& name, bool isPrepared) {
    if (json_)
        toOutput(JSONLine("image")
                     .add("index", std::uint64_t{index})
                     .add("source", source)
                     .add("name", name)
                     .add("outcome", isPrepared ? QStringLiteral("prepared") : QStringLiteral("skipped"))
                     .line());
}

void Reporter::progress(const hostapi::ExportProgress& progress) {
    if (json_)
        toOutput(JSONLine("progress")
                     .add("current", std::uint64_t{progress.currentValue})
                     .add("total", std::uint64_t{progress.totalValue})
                     .add("message", progress.message)
                     .add("indeterminate", progress.indeterminateProgress)
                     .line());
    const std::lock_guard lock(mutex_);
    if (!hasEnded_)
        progressLine_.show(progress);
}

void Reporter::result(const QString& text) {
    if (!json_)
        toOutput(printable(text).toUtf8() + '\n');
}

void Reporter::complaint(const QString& text) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_)
        return;
    progressLine_.erase();
    complain(text);
}

void Reporter::end(Outcome outcome) {
    const std::unique_lock lock(mutex_, kEndPatience);
    if (!lock.owns_lock() || hasEnded_)
        return;
    progressLine_.erase();
    if (json_)
        writeAll(STDOUT_FILENO, endLine(outcome));
    hasEnded_ = true;
}

void Reporter::toOutput(const QByteArray& line) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_)
        return;
    progressLine_.erase();
    writeAll(STDOUT_FILENO, line);
}

void Reporter::toError(const QByteArray& line) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_)
        return;
    progressLine_.erase();
    writeAll(STDERR_FILENO, line);
}

} // namespace host::cli
