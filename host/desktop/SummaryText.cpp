#include "host/desktop/SummaryText.h"

#include "host/desktop/Counting.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLocale>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

namespace host::desktop {

using End = ExportRun::End;

namespace {

/// In characters.
constexpr qsizetype kLongestName = 60;

QString tr(const char* text) {
    return QCoreApplication::translate("SummaryText", text);
}

QString headline(const ExportRecord& record, std::optional<End> end) {
    if (record.isSettled())
        return tr("The export is finished.");
    if (end == End::Cancelled)
        return tr("The export was cancelled.");
    if (end == End::Failed)
        return tr("The export failed.");
    if (end == End::Unconfirmed || (record.lacksConfirmation() && record.remaining().empty()))
        return tr("The service did not confirm that it processes the photographs.");
    if (end)
        return tr("Some photographs were not exported.");
    return tr("This export is not complete.");
}

QStringList counts(const ExportRecord& record) {
    const std::size_t uploaded = record.count(ImageOutcome::Uploaded);
    const std::size_t leftOut = record.count(ImageOutcome::LeftOut);
    const std::size_t notUploaded = record.count(ImageOutcome::NotUploaded);
    QStringList lines{uploaded == record.images.size()
                          ? tr("Uploaded and confirmed by the server: all %1.").arg(photographs(uploaded))
                          : tr("Uploaded and confirmed by the server: %1 of %2.")
                                .arg(uploaded)
                                .arg(photographs(record.images.size()))};
    if (leftOut > 0)
        lines << tr("Left out because they could not be read: %1.").arg(leftOut);
    if (notUploaded > 0)
        lines << tr("Not uploaded: %1.").arg(notUploaded);
    return lines;
}

QString processing(const ExportRecord& record) {
    if (record.processingConfirmed)
        return tr("The service has confirmed that it processes what was uploaded.");
    if (!record.lacksConfirmation())
        return {};
    if (record.remaining().empty())
        return tr(
            "The photographs are on the server, but they may not show up in the gallery before the service "
            "has confirmed. Ask for the confirmation again; no photograph is sent a second time.");
    return tr("The service has not confirmed that it processes what was uploaded. Exporting the remaining "
              "photographs asks it to.");
}

/// Some locales' short times have seconds.
QString toTheMinute(const QDateTime& time) {
    const QLocale locale;
    QString format = locale.timeFormat(QLocale::ShortFormat);
    format.remove(QRegularExpression(QStringLiteral("[:.]s+")));
    return locale.toString(time.date(), QLocale::ShortFormat) + QLatin1Char(' ') +
           locale.toString(time.time(), format);
}

} // namespace

SummaryText summaryText(const ExportRecord& record, std::optional<End> end, const QString& reason) {
    QStringList lines = counts(record);
    if (const QString line = processing(record); !line.isEmpty())
        lines << line;
    if (!reason.isEmpty())
        lines.prepend(reason);
    return {headline(record, end), tr("Event “%1”").arg(record.choices.eventName),
            lines.join(QLatin1Char('\n'))};
}

QString shortened(const QString& name) {
    if (name.size() <= kLongestName)
        return name;
    // Half a character would be none.
    const qsizetype end = kLongestName - (name.at(kLongestName - 2).isHighSurrogate() ? 2 : 1);
    return name.left(end) + QChar(u'…');
}

QString unfinishedLine(const ExportRecord& record) {
    const QString when = toTheMinute(record.begun.toLocalTime());
    const std::size_t remaining = record.remaining().size();
    const QString what = remaining == 0
                             ? tr("not confirmed by the service")
                             : (remaining == 1 ? tr("%1 of %2 remains") : tr("%1 of %2 remain"))
                                   .arg(QString::number(remaining), photographs(record.images.size()));
    // All at once: a name may hold what looks like a further place.
    return tr("%1, %2: %3").arg(shortened(record.choices.eventName), when, what);
}

} // namespace host::desktop
