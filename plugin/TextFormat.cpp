#include "plugin/TextFormat.h"

QString formattedText(const QString& format, std::initializer_list<std::optional<QString>> values) {
    static constexpr QLatin1String kPlaceholder{"%@"};
    // In one piece: a text that grew would leave parts of a password behind.
    qsizetype length = format.size();
    for (const auto& value : values)
        length += value ? value->size() : kAbsentText.size();
    QString text;
    text.reserve(length);
    qsizetype position = 0;
    for (const auto& value : values) {
        const qsizetype placeholder = format.indexOf(kPlaceholder, position);
        if (placeholder < 0)
            break;
        text += QStringView(format).mid(position, placeholder - position);
        text += value ? *value : QString(kAbsentText);
        position = placeholder + kPlaceholder.size();
    }
    text += QStringView(format).mid(position);
    return text;
}
