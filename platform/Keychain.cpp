#include "platform/Keychain.h"

#include "platform/Keyring.h"

#include <algorithm>
#include <string>

namespace platform {

namespace {

constexpr char kServerAttribute[] = "server";
constexpr char kUserAttribute[] = "user";
constexpr char kObjectAttribute[] = "object";
constexpr char kProtocolAttribute[] = "protocol";
constexpr char kAuthTypeAttribute[] = "authtype";
constexpr char kPortAttribute[] = "port";
constexpr char kContentType[] = "text/plain";

constexpr char kLabelFormat[] = "quillmark: %1 (%2)";

/// The private-use characters U+EF00 to U+EFFF stand for the bytes 0x00 to 0xff.
constexpr char32_t kByteCharacters = 0xef00;

/// The bytes as an attribute's text. The bus takes nothing but UTF-8 without NUL, yet an account may have
/// been cut in the middle of a character. UTF-8 stays as it is, so that other programs find the item; each
/// byte that isn't part of a character becomes a private-use one. So that different bytes never become the
/// same text, those private-use characters count as such bytes themselves.
std::string attributeText(const QByteArray& bytes) {
    std::string text;
    const char* const end = bytes.constData() + bytes.size();
    for (const char* next = bytes.constData(); next < end;) {
        const gunichar character = g_utf8_get_char_validated(next, end - next); // none starts with a NUL
        const bool isByte = character > 0x10ffff || (character & ~0xffU) == kByteCharacters;
        if (isByte) {
            char escaped[6];
            const auto value = static_cast<unsigned char>(*next);
            text.append(escaped,
                        static_cast<std::size_t>(g_unichar_to_utf8(kByteCharacters + value, escaped)));
            ++next;
        } else {
            const char* const following = g_utf8_next_char(next);
            text.append(next, following);
            next = following;
        }
    }
    return text;
}

QByteArray fourCharacters(std::uint32_t code) {
    QByteArray text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift & 0xff);
    return text;
}

void setAttribute(GHashTable* table, const char* name, const QByteArray& value) {
    g_hash_table_replace(table, g_strdup(name), g_strdup(attributeText(value).c_str()));
}

AttributeTable attributeTable(const Keychain::Attributes& attributes) {
    AttributeTable table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    QByteArray authenticationType = fourCharacters(attributes.authenticationType);
    std::reverse(authenticationType.begin(), authenticationType.end()); // its codes are byte-swapped
    setAttribute(table.get(), kServerAttribute, attributes.server);
    setAttribute(table.get(), kUserAttribute, attributes.account);
    setAttribute(table.get(), kObjectAttribute, attributes.path);
    setAttribute(table.get(), kProtocolAttribute, fourCharacters(attributes.protocol));
    setAttribute(table.get(), kAuthTypeAttribute, authenticationType);
    setAttribute(table.get(), kPortAttribute, QByteArray::number(attributes.port));
    return table;
}

QByteArray label(const QByteArray& server, const QByteArray& account) {
    return QString::fromLatin1(kLabelFormat)
        .arg(QString::fromUtf8(server), QString::fromUtf8(account))
        .toUtf8();
}

SecretBytes secretBytes(const QByteArray& password) {
    return SecretBytes(secret_value_new(password.constData(), password.size(), kContentType));
}

/// Keeps the session, without which the item can't take a secret.
struct KeyringItem final : Keychain::Item {
    KeyringItem(std::shared_ptr<Keyring> session, Ref<SecretItem> found)
        : keyring(std::move(session))
        , item(std::move(found)) {}
    const std::shared_ptr<Keyring> keyring;
    const Ref<SecretItem> item;
};

} // namespace

std::int32_t Keychain::findInternetPassword(const Attributes& attributes, QByteArray* password,
                                            std::shared_ptr<Item>* item) {
    return Keyring::statusOf([&] {
        const auto keyring = Keyring::current();
        auto found = keyring->find(attributeTable(attributes).get());
        if (!found)
            throw KeyringFailure{kItemNotFound};
        if (password)
            *password = keyring->password(found.get());
        if (item)
            *item = std::make_shared<KeyringItem>(keyring, std::move(found));
    });
}

std::int32_t Keychain::addInternetPassword(const Attributes& attributes, const QByteArray& password,
                                           std::shared_ptr<Item>* item) {
    return Keyring::statusOf([&] {
        const auto keyring = Keyring::current();
        const auto table = attributeTable(attributes);
        if (keyring->find(table.get()))
            throw KeyringFailure{kDuplicateItem};
        auto added = keyring->create(table.get(), label(attributes.server, attributes.account),
                                     secretBytes(password).get());
        if (item)
            *item = std::make_shared<KeyringItem>(keyring, std::move(added));
    });
}

std::int32_t Keychain::modifyItem(Item& item, const QByteArray& account, const QByteArray& password) {
    return Keyring::statusOf([&] {
        const auto& [keyring, modified] = dynamic_cast<KeyringItem&>(item);
        keyring->setPassword(modified.get(), secretBytes(password).get());
        const AttributeTable attributes(secret_item_get_attributes(modified.get()));
        const auto* const user =
            static_cast<const char*>(g_hash_table_lookup(attributes.get(), kUserAttribute));
        if (g_strcmp0(attributeText(account).c_str(), user) == 0)
            return;
        setAttribute(attributes.get(), kUserAttribute, account);
        keyring->setAttributes(modified.get(), attributes.get());
    });
}

QString Keychain::messageForStatus(std::int32_t status) {
    switch (status) {
    case kSuccess:
        return QStringLiteral("No error.");
    case kNotAvailable:
        return QStringLiteral("No keyring is available.");
    case kAuthFailed:
        return QStringLiteral("The keyring was not unlocked.");
    case kDuplicateItem:
        return QStringLiteral("The item already exists in the keyring.");
    case kItemNotFound:
        return QStringLiteral("The item could not be found in the keyring.");
    case kInteractionNotAllowed:
        return QStringLiteral("The keyring is locked, and there is no way to ask for its password.");
    default:
        return QStringLiteral("The keyring reported status %1.").arg(status);
    }
}

} // namespace platform
