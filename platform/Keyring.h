#pragma once

#include <QtCore/QByteArray>

#include <libsecret/secret.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace platform {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref>;

struct AttributeTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using AttributeTable = std::unique_ptr<GHashTable, AttributeTableUnref>;

struct SecretValueUnref {
    void operator()(SecretValue* value) const { secret_value_unref(value); } // wipes it
};
using SecretBytes = std::unique_ptr<SecretValue, SecretValueUnref>;

/// Why an operation ended early: a status of Keychain's.
struct KeyringFailure {
    std::int32_t status;
};

/// A session with the user's keyring over libsecret, for Keychain. Everything happens inside `statusOf`, and
/// throws a KeyringFailure where it can't.
class Keyring {
public:
    /// Runs `work`, one at a time in this process, and returns the status: that of its KeyringFailure, or
    /// success.
    static std::int32_t statusOf(const std::function<void()>& work);

    /// The session of this process: opening one takes far longer than a look-up, and each upload makes one.
    /// A new one where bus or keyring have gone.
    static std::shared_ptr<Keyring> current();

    Keyring();

    /// The item of these attributes, unlocked; null where there is none. Asks for the password of a locked
    /// keyring, since what is in there can't be told before.
    Ref<SecretItem> find(GHashTable* attributes);
    /// Adds an item to the default collection, which it has unlocked, or made for a user who has none.
    Ref<SecretItem> create(GHashTable* attributes, const QByteArray& label, SecretValue* password);
    QByteArray password(SecretItem* item);
    void setPassword(SecretItem* item, SecretValue* password);
    void setAttributes(SecretItem* item, GHashTable* attributes);

private:
    static Ref<GDBusConnection> connect();
    static Ref<SecretService> open();
    bool isAlive() const;
    std::string ownerOf(const char* name) const;

    std::vector<Ref<SecretItem>> search(GHashTable* attributes);
    Ref<SecretCollection> defaultCollection();
    Ref<SecretCollection> unlockedDefaultCollection();
    Ref<SecretCollection> createDefaultCollection();
    void unlock(const std::vector<GDBusProxy*>& objects);
    std::int32_t statusOfRefusal() const;

    const Ref<GDBusConnection> bus_;
    const Ref<SecretService> service_;
    const std::string owner_; ///< The service's own name on the bus; another one knows no session of ours.
};

} // namespace platform
