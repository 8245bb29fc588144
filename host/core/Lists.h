#pragma once

#include <QtCore/QString>

#include <cstddef>
#include <optional>
#include <variant>
#include <vector>

namespace host {

/// A record of the service, as the settings view's choosers show it.
struct Entry {
    std::optional<QString> id;
    QString name;
};

struct Event : Entry {
    std::optional<std::vector<Entry>> categories; ///< None where they could not be loaded.
};

/// What the account may choose from.
struct Lists {
    std::vector<Event> events;
    std::vector<Entry> pricingTemplates;
};

/// No entry, or more than one, is what was asked for; the message names those that could be.
struct NoSuchEntry {
    QString message;
};

/// The index of the entry with that id, else of the only one with that name. `kind` is what the message calls
/// an entry, such as "event".
std::variant<std::size_t, NoSuchEntry> select(const std::vector<Entry>& entries, const QString& idOrName,
                                              const QString& kind);

/// The events without their categories.
std::vector<Entry> entries(const std::vector<Event>& events);

} // namespace host
