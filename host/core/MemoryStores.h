#pragma once

#include "hostapi/HostServices.h"

#include <QtCore/QHash>

#include <memory>
#include <mutex>
#include <vector>

namespace host {

/// Passwords that live as long as this object; they are overwritten when they are replaced and at the end.
class MemoryCredentialStore final : public hostapi::CredentialStore {
public:
    MemoryCredentialStore();
    ~MemoryCredentialStore() override;

    hostapi::CredentialStatus findInternetPassword(const hostapi::InternetPassword& attributes,
                                                   QByteArray* password,
                                                   std::shared_ptr<hostapi::CredentialItem>* item) override;
    hostapi::CredentialStatus addInternetPassword(const hostapi::InternetPassword& attributes,
                                                  const QByteArray& password,
                                                  std::shared_ptr<hostapi::CredentialItem>* item) override;
    /// `kCredentialItemNotFound` for an item of another store.
    hostapi::CredentialStatus modifyItem(hostapi::CredentialItem& item, const QByteArray& account,
                                         const QByteArray& password) override;
    QString messageForStatus(hostapi::CredentialStatus status) override;

private:
    class Item;
    std::shared_ptr<Item> itemWith(const hostapi::InternetPassword& attributes) const;

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Item>> items_;
};

/// User defaults that start empty and live as long as this object.
class MemoryDefaultsStore final : public hostapi::DefaultsStore {
public:
    QVariant value(QLatin1String key) override;
    void setValue(QLatin1String key, const QVariant& value) override;
    void remove(QLatin1String key) override;

private:
    std::mutex mutex_;
    QHash<QString, QVariant> values_;
};

} // namespace host
