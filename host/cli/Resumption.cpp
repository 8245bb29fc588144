#include "host/cli/Resumption.h"

#include "host/core/Lists.h"

#include <QtCore/QLocale>

#include <algorithm>

namespace host::cli {

namespace {

const QString kEventKind = QStringLiteral("event");

QString eventOf(const ExportRecord& record) {
    return QStringLiteral("\"%1\" (%2)").arg(record.choices.eventName, record.choices.eventId);
}

/// The events of the journals, each once, the newest first.
std::vector<Entry> eventsOf(const std::vector<FoundJournal>& journals) {
    std::vector<Entry> events;
    for (const FoundJournal& journal : journals) {
        const ExportChoices& choices = journal.record->choices;
        const bool isKnown = std::any_of(events.begin(), events.end(),
                                         [&](const Entry& event) { return event.id == choices.eventId; });
        if (!isKnown)
            events.push_back({choices.eventId, choices.eventName});
    }
    return events;
}

std::vector<FoundJournal> journalsOf(const QString& folder, const QString& service, const QString& account,
                                     const std::function<void(const FoundJournal&)>& damaged) {
    std::vector<FoundJournal> journals;
    for (FoundJournal& journal : journalsIn(folder)) {
        if (!journal.record)
            damaged(journal);
        else if (journal.record->service == service && journal.record->choices.account == account)
            journals.push_back(std::move(journal));
    }
    return journals;
}

void keepEvent(std::vector<FoundJournal>& journals, const QString& id) {
    std::erase_if(journals,
                  [&](const FoundJournal& journal) { return journal.record->choices.eventId != id; });
}

/// Without an event being named: what has nothing left does not count, where anything has.
std::optional<NoResumption> keepOnlyEvent(std::vector<FoundJournal>& journals) {
    std::vector<FoundJournal> unsettled = journals;
    std::erase_if(unsettled, [](const FoundJournal& journal) { return journal.record->isSettled(); });
    const std::vector<Entry> events = eventsOf(unsettled.empty() ? journals : unsettled);
    if (events.size() > 1 && !unsettled.empty()) {
        QStringList names;
        for (const Entry& event : events)
            names += QStringLiteral("%1 (%2)").arg(event.name, event.id.value_or(QString()));
        return NoResumption{
            QStringLiteral("something is left for more than one event; choose with --event: ") +
                names.join(QStringLiteral(", ")),
            true};
    }
    keepEvent(journals, *events.front().id);
    return std::nullopt;
}

std::optional<NoResumption> keepNamedEvent(std::vector<FoundJournal>& journals, const QString& event) {
    const std::vector<Entry> events = eventsOf(journals);
    const auto selection = select(events, event, kEventKind);
    if (const auto* none = std::get_if<NoSuchEntry>(&selection))
        return NoResumption{QStringLiteral("nothing can be resumed: ") + none->message, true};
    keepEvent(journals, *events[std::get<std::size_t>(selection)].id);
    return std::nullopt;
}

/// The one to go on with; it may be held.
const FoundJournal& chosenOf(const std::vector<FoundJournal>& journals) {
    const auto is = [&](bool settled, bool held) {
        return std::find_if(journals.begin(), journals.end(), [=](const FoundJournal& journal) {
            return journal.record->isSettled() == settled && journal.isHeld == held;
        });
    };
    for (const bool settled : {false, true}) {
        for (const bool held : {false, true}) {
            if (const auto found = is(settled, held); found != journals.end())
                return *found;
        }
    }
    return journals.front();
}

} // namespace

std::variant<std::shared_ptr<ExportJournal>, NoResumption>
findResumption(const QString& folder, const QString& service, const QString& account,
               const std::optional<QString>& event, const std::function<void(const FoundJournal&)>& damaged) {
    // What processes that died have left may settle an export.
    reconcileJournals(folder);
    std::vector<FoundJournal> journals = journalsOf(folder, service, account, damaged);
    if (journals.empty())
        return NoResumption{QStringLiteral("no export of \"%1\" is known that could be resumed").arg(account),
                            true};
    if (auto none = event ? keepNamedEvent(journals, *event) : keepOnlyEvent(journals))
        return *std::move(none);
    const FoundJournal& chosen = chosenOf(journals);
    QString error;
    std::shared_ptr<ExportJournal> journal = ExportJournal::open(chosen.path, error);
    if (!journal)
        return NoResumption{
            QStringLiteral("the export to %1 can't be resumed: %2").arg(eventOf(*chosen.record), error)};
    return journal;
}

QString description(const ExportRecord& record) {
    const std::size_t left = record.remaining().size();
    const QString begun =
        QLocale::c().toString(record.begun.toLocalTime(), QStringLiteral("yyyy-MM-dd HH:mm"));
    const QString what = QStringLiteral("the export to %1 of %2").arg(eventOf(record), begun);
    if (record.isSettled())
        return QStringLiteral("Nothing is left of %1.").arg(what);
    if (left == 0)
        return QStringLiteral("Of %1 all is uploaded; the service is asked again to process it.").arg(what);
    // All at once: a name may hold what looks like a further place.
    return QStringLiteral(
               "Going on with %1: of %2 images %3 are left and are sent now, under the same names.")
        .arg(what, QString::number(record.images.size()), QString::number(left));
}

QString leftOver(const ExportRecord& record) {
    const std::size_t left = record.remaining().size();
    if (left > 0)
        return (left == 1 ? QStringLiteral("1 image is left; --resume exports it")
                          : QStringLiteral("%1 images are left; --resume exports them").arg(left));
    if (record.lacksConfirmation())
        return QStringLiteral("--resume asks the service again to process what is uploaded");
    return {};
}

} // namespace host::cli
