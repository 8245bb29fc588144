#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <cstdint>
#include <memory>

namespace platform {

/// Internet passwords in the desktop's keyring, over libsecret: schema
/// `org.gnome.keyring.NetworkPassword` with the attributes server, user, object (the path), protocol,
/// authtype and port. Blocking: a locked keyring lets the desktop ask its user for the password (for five
/// minutes at most), a keyring that doesn't answer is given up after ten seconds. Any thread; calls run one
/// after the other. Status 0 is success.
class Keychain {
public:
    static constexpr std::int32_t kSuccess = 0;
    static constexpr std::int32_t kNotAvailable = -25291;
    static constexpr std::int32_t kAuthFailed = -25293;
    static constexpr std::int32_t kDuplicateItem = -25299;
    static constexpr std::int32_t kItemNotFound = -25300;
    static constexpr std::int32_t kInteractionNotAllowed = -25308;

    static constexpr std::uint32_t kProtocolTypeHTTP = 0x68747470;          ///< 'http'
    static constexpr std::uint32_t kAuthenticationTypeDefault = 0x746c6664; ///< 'dflt', byte-swapped

    /// Texts are UTF-8 bytes; others are kept apart too.
    struct Attributes {
        QByteArray server;
        QByteArray account;
        QByteArray path;
        std::uint16_t port = 0;
        std::uint32_t protocol = 0;
        std::uint32_t authenticationType = 0;
    };

    /// A found or added item.
    class Item {
    public:
        virtual ~Item() = default;
    };

    /// Finds the item whose attributes all equal and fills what is not null.
    static std::int32_t findInternetPassword(const Attributes& attributes, QByteArray* password,
                                             std::shared_ptr<Item>* item);
    /// Adds an item; `kDuplicateItem` where one with equal attributes exists.
    static std::int32_t addInternetPassword(const Attributes& attributes, const QByteArray& password,
                                            std::shared_ptr<Item>* item);
    static std::int32_t modifyItem(Item& item, const QByteArray& account, const QByteArray& password);
    /// The platform's sentence for a status.
    static QString messageForStatus(std::int32_t status);
};

} // namespace platform
