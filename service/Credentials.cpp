#include "plugin/Quillmark.h"

#include "platform/Keychain.h"
#include "platform/Secret.h"
#include "plugin/DefaultsKeys.h"

namespace {

const QByteArray kPath = QByteArrayLiteral("instantupload");
constexpr std::uint16_t kPort = 0;

const QString kSavingFailed = QStringLiteral("There was an error saving the password to the keychain.");
const QString kSavingFailedInfo = QStringLiteral("Informative Message: %1, %2");

} // namespace

hostapi::InternetPassword Quillmark::keychainAttributes(const QString& userName) const {
    hostapi::InternetPassword attributes;
    attributes.server = environment->configuration.webHost.toUtf8();
    attributes.account = userName.toUtf8();
    attributes.path = kPath;
    attributes.port = kPort;
    attributes.protocol = platform::Keychain::kProtocolTypeHTTP;
    attributes.authenticationType = platform::Keychain::kAuthenticationTypeDefault;
    return attributes;
}

void Quillmark::storePasswordInKeyChain(const Record& details) {
    const QString userName = details.text(kUsernameKey).value_or(QString());
    QByteArray password = details.text(kPasswordKey).value_or(QString()).toUtf8();
    environment->defaults.setValue(defaults_keys::kSavedKeyChain, true);

    auto attributes = keychainAttributes(userName);
    auto& keychain = environment->credentials;
    std::shared_ptr<hostapi::CredentialItem> item;
    hostapi::CredentialStatus status = keychain.findInternetPassword(attributes, nullptr, &item);
    if (status == hostapi::kCredentialSuccess) {
        status = keychain.modifyItem(*item, attributes.account, password);
    } else {
        // A new item's account has the name's length in characters, in bytes: a name beyond ASCII is cut
        // short, and no lookup finds it. Existing items were made so.
        attributes.account.truncate(userName.size());
        status = keychain.addInternetPassword(attributes, password, &item);
    }
    // A store in memory may share the bytes, and then they are its own.
    platform::wipeUnlessShared(password);
    if (status != hostapi::kCredentialSuccess)
        environment->alerts.runModal(
            {hostapi::AlertStyle::Critical, kSavingFailed,
             kSavingFailedInfo.arg(QString::number(status), keychain.messageForStatus(status))});
}

std::optional<QString> Quillmark::getPasswordfromKeyChain(const QString& userName) {
    QByteArray password;
    if (environment->credentials.findInternetPassword(keychainAttributes(userName), &password, nullptr) !=
        hostapi::kCredentialSuccess)
        return std::nullopt;
    // Stored as UTF-8, but read in the default encoding.
    QString text = platform::textFromDefaultCString(password);
    platform::wipeUnlessShared(password);
    return text;
}

void Quillmark::unsetSavedCredentials() {
    environment->defaults.remove(defaults_keys::kQuillmarkUsername);
    environment->defaults.remove(defaults_keys::kSavedKeyChain);
}

void Quillmark::changeRememberState(QObject* sender) {
    const auto* const box = qobject_cast<QCheckBox*>(sender);
    environment->defaults.setValue(defaults_keys::kRememberDetails, box && box->checkState() == Qt::Checked);
}
