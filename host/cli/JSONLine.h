#pragma once

#include "host/core/Lists.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstdint>
#include <optional>

namespace host::cli {

/// Builds a JSON object in one line of UTF-8 whose keys stand in the order in which they were added. Qt's own
/// writer sorts them.
class JSONLine {
public:
    /// An object whose first key says what it is about.
    explicit JSONLine(const char* event);

    JSONLine& add(const char* key, const QString& text);
    JSONLine& add(const char* key, const std::optional<QString>& text);
    JSONLine& add(const char* key, std::uint64_t number);
    JSONLine& add(const char* key, bool value);
    JSONLine& add(const char* key, const std::vector<Event>& events);
    JSONLine& add(const char* key, const std::vector<Entry>& entries);

    /// The object with its line end.
    QByteArray line() const { return object_ + "}\n"; }

private:
    JSONLine& addValue(const char* key, const QByteArray& value);
    QByteArray object_;
};

} // namespace host::cli
