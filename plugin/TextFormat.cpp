#include "plugin/TextFormat.h"

QString formattedText(const QString& format, std::initializer_list<std::optional<QString>> values) {
    static constexpr QLatin1String kPlaceholder{"%@"};
    QString text;
    qsizetype position = 0;
    for (const auto& value : values) {
        const qsizetype placeholder = format.indexOf(kPlaceholder, position);
        if (placeholder < 0)
            break;
        text += QStringView(format).mid(position, placeholder - position);
        text += value ? *value : QString(kAbsentText);
        position = placeholder + kPlaceholder.size();
    }
    return text + QStringView(format).mid(position);
}
