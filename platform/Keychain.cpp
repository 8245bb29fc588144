#include "platform/Keychain.h"

#include "platform/Secret.h"

#include <libsecret/secret.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace platform {

namespace {

constexpr char kSchemaName[] = "org.gnome.keyring.NetworkPassword";
constexpr char kServerAttribute[] = "server";
constexpr char kUserAttribute[] = "user";
constexpr char kObjectAttribute[] = "object";
constexpr char kProtocolAttribute[] = "protocol";
constexpr char kAuthTypeAttribute[] = "authtype";
constexpr char kPortAttribute[] = "port";
constexpr char kSchemaAttribute[] = "xdg:schema"; // libsecret's own, beside those of the schema
constexpr char kContentType[] = "text/plain";

/// A keyring that doesn't answer by then counts as absent.
constexpr std::chrono::seconds kAnswerLimit{10};
/// How long a person may take to type the keyring's password.
constexpr std::chrono::minutes kPromptLimit{5};

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
template <typename Object>
using Ref = std::unique_ptr<Object, Unref>;

struct HashTableUnref {
    void operator()(GHashTable* table) const { g_hash_table_unref(table); }
};
using AttributeTable = std::unique_ptr<GHashTable, HashTableUnref>;

/// Thrown inside this file; carries the status to answer.
struct Failure {
    std::int32_t status;
};

std::int32_t statusForError(const GError& error) {
    if (error.domain == SECRET_ERROR && error.code == SECRET_ERROR_IS_LOCKED)
        return Keychain::kInteractionNotAllowed;
    if (error.domain == SECRET_ERROR && error.code == SECRET_ERROR_NO_SUCH_OBJECT)
        return Keychain::kItemNotFound;
    return Keychain::kNotAvailable;
}

/// One call to the keyring: cancelled at its time limit, its error turned into a Failure.
class Call {
public:
    explicit Call(std::chrono::milliseconds limit = kAnswerLimit)
        : watch_([this, limit](const std::stop_token& answered) { cancelAfter(limit, answered); }) {}
    ~Call() { g_clear_error(&error_); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    GCancellable* cancellable() const { return cancellable_.get(); }
    GError** error() { return &error_; }
    void check() const {
        if (error_)
            throw Failure{statusForError(*error_)};
    }

private:
    void cancelAfter(std::chrono::milliseconds limit, const std::stop_token& answered) {
        std::unique_lock lock(mutex_);
        std::condition_variable_any ended;
        ended.wait_for(lock, answered, limit, [] { return false; });
        if (!answered.stop_requested())
            g_cancellable_cancel(cancellable_.get());
    }

    GError* error_ = nullptr;
    const Ref<GCancellable> cancellable_{g_cancellable_new()};
    std::mutex mutex_;
    std::jthread watch_;
};

std::string fourCharacters(std::uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(code >> shift & 0xff);
    return text;
}

AttributeTable attributeTable(const Keychain::Attributes& attributes) {
    AttributeTable table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free));
    const auto insert = [&table](const char* name, const std::string& value) {
        g_hash_table_insert(table.get(), g_strdup(name), g_strdup(value.c_str()));
    };
    const std::string authType = fourCharacters(attributes.authenticationType);
    insert(kServerAttribute, attributes.server.toStdString());
    insert(kUserAttribute, attributes.account.toStdString());
    insert(kObjectAttribute, attributes.path.toStdString());
    insert(kProtocolAttribute, fourCharacters(attributes.protocol));
    insert(kAuthTypeAttribute, {authType.rbegin(), authType.rend()});
    insert(kPortAttribute, std::to_string(attributes.port));
    return table;
}

struct KeyringItem final : Keychain::Item {
    explicit KeyringItem(Ref<SecretItem> found)
        : item(std::move(found)) {}
    const Ref<SecretItem> item;
};

} // namespace

std::int32_t Keychain::findInternetPassword(const Attributes&, QByteArray*, std::shared_ptr<Item>*) {
    return kNotAvailable;
}

std::int32_t Keychain::addInternetPassword(const Attributes&, const QByteArray&, std::shared_ptr<Item>*) {
    return kNotAvailable;
}

std::int32_t Keychain::modifyItem(Item&, const QByteArray&, const QByteArray&) {
    return kNotAvailable;
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
