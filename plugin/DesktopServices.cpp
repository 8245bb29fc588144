#include "plugin/DesktopServices.h"

#include "platform/Alert.h"
#include "platform/Keychain.h"
#include "platform/UserDefaults.h"

namespace desktop_services {

namespace {

using platform::Keychain;

static_assert(hostapi::kCredentialSuccess == Keychain::kSuccess);
static_assert(hostapi::kCredentialDuplicateItem == Keychain::kDuplicateItem);
static_assert(hostapi::kCredentialItemNotFound == Keychain::kItemNotFound);

platform::AlertStyle desktopStyle(hostapi::AlertStyle style) {
    switch (style) {
    case hostapi::AlertStyle::Informational:
        return platform::AlertStyle::Informational;
    case hostapi::AlertStyle::Critical:
        return platform::AlertStyle::Critical;
    case hostapi::AlertStyle::Warning:
        break;
    }
    return platform::AlertStyle::Warning;
}

platform::Alert desktopAlert(const hostapi::Alert& alert) {
    return {desktopStyle(alert.style), alert.message, alert.informativeText};
}

class DesktopAlerts final : public hostapi::AlertPresenter {
public:
    void runModal(const hostapi::Alert& alert) override { desktopAlert(alert).runModal(); }
    void beginSheet(const hostapi::Alert& alert, QWidget* window) override {
        desktopAlert(alert).beginSheet(window);
    }
};

struct DesktopCredential final : hostapi::CredentialItem {
    std::shared_ptr<Keychain::Item> keychainItem;
};

Keychain::Attributes keychainAttributes(const hostapi::InternetPassword& attributes) {
    return {attributes.server, attributes.account,  attributes.path,
            attributes.port,   attributes.protocol, attributes.authenticationType};
}

/// Runs a keychain operation that yields an item, and hands the item on where one is asked for.
template <typename Operation>
hostapi::CredentialStatus withItem(std::shared_ptr<hostapi::CredentialItem>* item, Operation&& operation) {
    std::shared_ptr<Keychain::Item> keychainItem;
    const auto status = operation(item ? &keychainItem : nullptr);
    if (keychainItem) {
        auto credential = std::make_shared<DesktopCredential>();
        credential->keychainItem = std::move(keychainItem);
        *item = std::move(credential);
    }
    return status;
}

class DesktopCredentials final : public hostapi::CredentialStore {
public:
    hostapi::CredentialStatus findInternetPassword(const hostapi::InternetPassword& attributes,
                                                   QByteArray* password,
                                                   std::shared_ptr<hostapi::CredentialItem>* item) override {
        return withItem(item, [&](std::shared_ptr<Keychain::Item>* found) {
            return Keychain::findInternetPassword(keychainAttributes(attributes), password, found);
        });
    }

    hostapi::CredentialStatus addInternetPassword(const hostapi::InternetPassword& attributes,
                                                  const QByteArray& password,
                                                  std::shared_ptr<hostapi::CredentialItem>* item) override {
        return withItem(item, [&](std::shared_ptr<Keychain::Item>* added) {
            return Keychain::addInternetPassword(keychainAttributes(attributes), password, added);
        });
    }

    hostapi::CredentialStatus modifyItem(hostapi::CredentialItem& item, const QByteArray& account,
                                         const QByteArray& password) override {
        auto* const credential = dynamic_cast<DesktopCredential*>(&item);
        return credential ? Keychain::modifyItem(*credential->keychainItem, account, password)
                          : hostapi::kCredentialItemNotFound;
    }

    QString messageForStatus(hostapi::CredentialStatus status) override {
        return Keychain::messageForStatus(status);
    }
};

class DesktopDefaults final : public hostapi::DefaultsStore {
public:
    QVariant value(QLatin1String key) override { return platform::UserDefaults::value(key); }
    void setValue(QLatin1String key, const QVariant& value) override {
        platform::UserDefaults::setValue(key, value);
    }
    void remove(QLatin1String key) override { platform::UserDefaults::remove(key); }
};

class SilentObserver final : public hostapi::ExportObserver {
public:
    void imagePrepared(std::uint32_t, const QString&) override {}
    void imageLeftOut(std::uint32_t) override {}
    void imageUploaded(const QString&) override {}
    void listsCouldNotBeLoaded() override {}
    void folderChainEnded(bool) override {}
    void uploadEnded(bool) override {}
    void finishingRequestUnanswered() override {}
};

} // namespace

hostapi::AlertPresenter& alerts() {
    static DesktopAlerts presenter;
    return presenter;
}

hostapi::CredentialStore& credentials() {
    static DesktopCredentials store;
    return store;
}

hostapi::DefaultsStore& defaults() {
    static DesktopDefaults store;
    return store;
}

hostapi::ExportObserver& observer() {
    static SilentObserver silent;
    return silent;
}

} // namespace desktop_services
