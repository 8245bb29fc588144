#include "host/core/Lists.h"

#include <QtCore/QStringList>

#include <algorithm>

namespace host {

namespace {

QString candidates(const std::vector<Entry>& all) {
    QStringList texts;
    for (const Entry& entry : all)
        texts += QStringLiteral("%1 (%2)").arg(entry.name, entry.id ? *entry.id : QStringLiteral("no id"));
    return texts.isEmpty() ? QStringLiteral("there is none") : texts.join(QStringLiteral(", "));
}

} // namespace

std::variant<std::size_t, NoSuchEntry> select(const std::vector<Entry>& entries, const QString& idOrName,
                                              const QString& kind) {
    const auto byId = std::find_if(entries.begin(), entries.end(),
                                   [&](const Entry& entry) { return entry.id == idOrName; });
    if (byId != entries.end())
        return static_cast<std::size_t>(byId - entries.begin());

    std::vector<Entry> named;
    std::size_t index = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].name != idOrName)
            continue;
        named.push_back(entries[i]);
        index = i;
    }
    if (named.size() == 1)
        return index;
    if (named.empty())
        return NoSuchEntry{QStringLiteral("there is no %1 \"%2\"; to choose from: %3")
                               .arg(kind, idOrName, candidates(entries))};
    return NoSuchEntry{QStringLiteral("\"%2\" is the name of more than one %1; choose by id: %3")
                           .arg(kind, idOrName, candidates(named))};
}

std::vector<Entry> entries(const std::vector<Event>& events) {
    return {events.begin(), events.end()};
}

} // namespace host
