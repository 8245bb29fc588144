#include "host/cli/Listing.h"

#include "host/cli/PrintableText.h"

namespace host::cli {

namespace {

const QString kNoId = QStringLiteral("-");

QString line(int indentation, const Entry& entry) {
    return QString(indentation, QLatin1Char(' ')) + printable(entry.id.value_or(kNoId)) +
           QStringLiteral("  ") + printable(entry.name) + QLatin1Char('\n');
}

} // namespace

QString listing(const Lists& lists) {
    QString text = QStringLiteral("Events:\n");
    for (const Event& event : lists.events) {
        text += line(2, event);
        if (!event.categories)
            text += QStringLiteral("      (its categories could not be loaded)\n");
        for (const Entry& category : event.categories.value_or(std::vector<Entry>()))
            text += line(6, category);
    }
    text += QStringLiteral("Pricing templates:\n");
    for (const Entry& pricing : lists.pricingTemplates)
        text += line(2, pricing);
    return text;
}

} // namespace host::cli
