#include "platform/UserDefaults.h"

#include <QtCore/QSettings>

namespace platform {

namespace {

/// QSettings objects belong to one thread; the file behind them is shared and locked by Qt.
class Store : public QSettings {
public:
    Store()
        : QSettings(QStringLiteral("Quillmark"), QStringLiteral("Quillmark")) {
        // System-wide files could not be forgotten with `remove`.
        setFallbacksEnabled(false);
    }
};

} // namespace

QVariant UserDefaults::value(const QString& key) {
    return Store().value(key);
}

void UserDefaults::setValue(const QString& key, const QVariant& value) {
    Store store;
    store.setValue(key, value);
    store.sync();
}

void UserDefaults::remove(const QString& key) {
    Store store;
    store.remove(key);
    store.sync();
}

} // namespace platform
