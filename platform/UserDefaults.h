#pragma once

#include <QtCore/QString>
#include <QtCore/QVariant>

namespace platform {

/// The user's defaults of this system, over QSettings (organisation and application "Quillmark").
/// Written through at once. Any thread.
class UserDefaults {
public:
    /// An invalid variant where nothing is stored.
    static QVariant value(const QString& key);
    static void setValue(const QString& key, const QVariant& value);
    static void remove(const QString& key);
};

} // namespace platform
