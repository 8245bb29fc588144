#include "host/cli/JSONLine.h"

#include "host/cli/PrintableText.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

namespace host::cli {

namespace {

const QByteArray kNull = QByteArrayLiteral("null");

/// JSON whose characters are only to be shown: these lines may end in a terminal, and JSON itself has but
/// those below the space escaped.
QByteArray withEscapes(const QByteArray& json) {
    QString result;
    for (const QChar unit : QString::fromUtf8(json)) {
        if (!unit.isSurrogate() && mustBeEscaped(unit.unicode()))
            result += QStringLiteral("\\u%1").arg(static_cast<uint>(unit.unicode()), 4, 16, QLatin1Char('0'));
        else
            result += unit;
    }
    return result.toUtf8();
}

QByteArray value(const QString& text) {
    // An array of the text alone, without its brackets.
    return withEscapes(QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact).mid(1).chopped(1));
}

QByteArray value(const std::optional<QString>& text) {
    return text ? value(*text) : kNull;
}

QByteArray members(const Entry& entry) {
    return "\"id\":" + value(entry.id) + ",\"name\":" + value(entry.name);
}

template <typename Item>
QByteArray list(const std::vector<Item>& items);

QByteArray value(const Entry& entry) {
    return '{' + members(entry) + '}';
}

QByteArray value(const Event& event) {
    return '{' + members(event) + ",\"categories\":" + (event.categories ? list(*event.categories) : kNull) +
           '}';
}

template <typename Item>
QByteArray list(const std::vector<Item>& items) {
    QByteArray text;
    for (const Item& item : items)
        text += (text.isEmpty() ? "" : ",") + value(item);
    return '[' + text + ']';
}

} // namespace

JSONLine::JSONLine(const char* event)
    : object_(QByteArrayLiteral("{\"event\":\"") + event + '"') {}

JSONLine& JSONLine::addValue(const char* key, const QByteArray& value) {
    object_ += QByteArrayLiteral(",\"") + key + "\":" + value;
    return *this;
}

JSONLine& JSONLine::add(const char* key, const QString& text) {
    return addValue(key, value(text));
}

JSONLine& JSONLine::add(const char* key, const std::optional<QString>& text) {
    return addValue(key, value(text));
}

JSONLine& JSONLine::add(const char* key, std::uint64_t number) {
    return addValue(key, QByteArray::number(static_cast<qulonglong>(number)));
}

JSONLine& JSONLine::add(const char* key, bool value) {
    return addValue(key, value ? "true" : "false");
}

JSONLine& JSONLine::add(const char* key, const std::vector<Event>& events) {
    return addValue(key, list(events));
}

JSONLine& JSONLine::add(const char* key, const std::vector<Entry>& entries) {
    return addValue(key, list(entries));
}

} // namespace host::cli
