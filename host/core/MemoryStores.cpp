#include "host/core/MemoryStores.h"

#include "platform/Secret.h"

#include <tuple>

namespace host {

using hostapi::CredentialStatus;
using hostapi::InternetPassword;

namespace {

auto comparable(const InternetPassword& attributes) {
    return std::tie(attributes.server, attributes.account, attributes.path, attributes.port,
                    attributes.protocol, attributes.authenticationType);
}

/// A copy that shares no buffer: the original may be wiped without it.
QByteArray ownCopy(const QByteArray& bytes) {
    return QByteArray(bytes.constData(), bytes.size());
}

} // namespace

class MemoryCredentialStore::Item final : public hostapi::CredentialItem {
public:
    Item(InternetPassword attributes, const QByteArray& password)
        : attributes_(std::move(attributes))
        , password_(ownCopy(password)) {}
    ~Item() override { platform::wipe(password_); }

    const InternetPassword& attributes() const { return attributes_; }
    QByteArray password() const { return ownCopy(password_); }

    void change(const QByteArray& account, const QByteArray& password) {
        attributes_.account = account;
        QByteArray changed = ownCopy(password);
        password_.swap(changed);
        platform::wipe(changed);
    }

private:
    InternetPassword attributes_;
    QByteArray password_;
};

MemoryCredentialStore::MemoryCredentialStore() = default;
MemoryCredentialStore::~MemoryCredentialStore() = default;

std::shared_ptr<MemoryCredentialStore::Item>
MemoryCredentialStore::itemWith(const InternetPassword& attributes) const {
    for (const auto& item : items_) {
        if (comparable(item->attributes()) == comparable(attributes))
            return item;
    }
    return nullptr;
}

CredentialStatus MemoryCredentialStore::findInternetPassword(const InternetPassword& attributes,
                                                             QByteArray* password,
                                                             std::shared_ptr<hostapi::CredentialItem>* item) {
    const std::lock_guard lock(mutex_);
    const auto found = itemWith(attributes);
    if (!found)
        return hostapi::kCredentialItemNotFound;
    if (password)
        *password = found->password();
    if (item)
        *item = found;
    return hostapi::kCredentialSuccess;
}

CredentialStatus MemoryCredentialStore::addInternetPassword(const InternetPassword& attributes,
                                                            const QByteArray& password,
                                                            std::shared_ptr<hostapi::CredentialItem>* item) {
    const std::lock_guard lock(mutex_);
    if (itemWith(attributes))
        return hostapi::kCredentialDuplicateItem;
    items_.push_back(std::make_shared<Item>(attributes, password));
    if (item)
        *item = items_.back();
    return hostapi::kCredentialSuccess;
}

CredentialStatus MemoryCredentialStore::modifyItem(hostapi::CredentialItem& item, const QByteArray& account,
                                                   const QByteArray& password) {
    const std::lock_guard lock(mutex_);
    for (const auto& own : items_) {
        if (own.get() != &item)
            continue;
        own->change(account, password);
        return hostapi::kCredentialSuccess;
    }
    return hostapi::kCredentialItemNotFound;
}

QString MemoryCredentialStore::messageForStatus(CredentialStatus status) {
    switch (status) {
    case hostapi::kCredentialDuplicateItem:
        return QStringLiteral("The password is already there.");
    case hostapi::kCredentialItemNotFound:
        return QStringLiteral("The password is not there.");
    default:
        return QStringLiteral("Unknown status.");
    }
}

QVariant MemoryDefaultsStore::value(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    return values_.value(key);
}

void MemoryDefaultsStore::setValue(QLatin1String key, const QVariant& value) {
    const std::lock_guard lock(mutex_);
    values_.insert(key, value);
}

void MemoryDefaultsStore::remove(QLatin1String key) {
    const std::lock_guard lock(mutex_);
    values_.remove(key);
}

} // namespace host
