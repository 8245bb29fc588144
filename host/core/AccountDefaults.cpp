#include "host/core/AccountDefaults.h"

#include "platform/UserDefaults.h"

namespace host {

namespace {

// The two values that make up a remembered login.
constexpr QLatin1String kRememberedName{"quillmarkUsername"};
constexpr QLatin1String kPasswordIsSaved{"savedKeyChain"};

} // namespace

std::optional<QString> rememberedAccount() {
    const QString name = platform::UserDefaults::value(kRememberedName).toString();
    return name.isEmpty() ? std::nullopt : std::optional(name);
}

AccountDefaults::AccountDefaults(const std::optional<QString>& account, bool bringsPassword) {
    const bool isAnothers = account && platform::UserDefaults::value(kRememberedName).toString() != *account;
    if (isAnothers)
        hidden_.insert(kRememberedName);
    if (isAnothers || bringsPassword)
        hidden_.insert(kPasswordIsSaved);
}

QVariant AccountDefaults::value(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    return hidden_.contains(key) ? QVariant() : platform::UserDefaults::value(key);
}

void AccountDefaults::setValue(QLatin1String key, const QVariant& value) {
    const std::lock_guard lock(mutex_);
    platform::UserDefaults::setValue(key, value);
    hidden_.remove(key);
}

void AccountDefaults::remove(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    platform::UserDefaults::remove(key);
    hidden_.remove(key);
}

} // namespace host
