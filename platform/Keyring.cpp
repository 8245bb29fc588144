#include "platform/Keyring.h"

#include "platform/Keychain.h"

#include <chrono>
#include <mutex>

namespace platform {

namespace {

constexpr char kNewCollectionLabel[] = "Default"; // as libsecret names the one that it makes

// The bus and names on it, the last two those of gnome-keyring and of what asks for its passwords.
constexpr char kBusName[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";
constexpr char kServiceName[] = "org.freedesktop.secrets";
constexpr char kKeyringName[] = "org.gnome.keyring";
constexpr char kPrompterName[] = "org.gnome.keyring.SystemPrompter";

/// A keyring that doesn't answer by then counts as absent.
constexpr std::chrono::seconds kAnswerLimit{10};
/// How long a person may take to type the keyring's password.
constexpr std::chrono::minutes kPromptLimit{5};

std::int32_t statusForError(const GError& error) {
    if (error.domain != SECRET_ERROR)
        return Keychain::kNotAvailable;
    switch (error.code) {
    case SECRET_ERROR_IS_LOCKED:
        return Keychain::kInteractionNotAllowed;
    case SECRET_ERROR_NO_SUCH_OBJECT:
        return Keychain::kItemNotFound;
    default:
        return Keychain::kNotAvailable;
    }
}

/// One operation at a time: two would ask the user for the same password twice, and add the same item twice.
///
/// It gives libsecret a main context of its own. Signals would otherwise come to the main thread while
/// another one works with their objects. The context is kept for good: what a connection hands to it after an
/// operation's end is let go at the next one, and would keep that connection otherwise.
class Operation {
public:
    Operation()
        : lock_(mutex()) {
        g_main_context_push_thread_default(context());
        dispatch();
    }
    ~Operation() {
        dispatch();
        g_main_context_pop_thread_default(context());
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

private:
    static std::mutex& mutex() {
        static std::mutex operations;
        return operations;
    }
    static GMainContext* context() {
        static GMainContext* const own = g_main_context_new();
        return own;
    }
    static void dispatch() {
        while (g_main_context_iteration(context(), FALSE)) {
        }
    }

    const std::lock_guard<std::mutex> lock_;
};

/// One call to the keyring: cancelled at its time limit, its error turned into a KeyringFailure. The
/// asynchronous form of each function is used, since the blocking ones drop main contexts that signals still
/// refer to.
class Call {
public:
    explicit Call(std::chrono::milliseconds limit = kAnswerLimit)
        : timer_(g_timeout_source_new(static_cast<guint>(limit.count()))) {
        g_source_set_callback(timer_, giveUp, cancellable_.get(), nullptr);
        g_source_attach(timer_, g_main_context_get_thread_default());
    }
    ~Call() {
        g_source_destroy(timer_);
        g_source_unref(timer_);
        g_clear_error(&error_);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    GCancellable* cancellable() const { return cancellable_.get(); }
    GError** error() { return &error_; }
    /// The callback to pass, with this object as its data.
    static void onAnswer(GObject*, GAsyncResult* result, gpointer call) {
        static_cast<Call*>(call)->answer_.reset(G_ASYNC_RESULT(g_object_ref(result)));
    }
    /// Waits for the answer.
    GAsyncResult* answer() {
        while (!answer_)
            g_main_context_iteration(g_main_context_get_thread_default(), TRUE);
        return answer_.get();
    }
    void check() const {
        if (error_)
            throw KeyringFailure{statusForError(*error_)};
    }

private:
    static gboolean giveUp(gpointer cancellable) {
        g_cancellable_cancel(G_CANCELLABLE(cancellable));
        return G_SOURCE_REMOVE;
    }

    GError* error_ = nullptr;
    const Ref<GCancellable> cancellable_{g_cancellable_new()};
    Ref<GAsyncResult> answer_;
    GSource* const timer_;
};

/// True where all attributes of the schema are equal or absent in both: a search also finds items that have
/// more of them (a security domain). Attributes outside the schema are a keyring's own affair.
bool haveEqualAttributes(GHashTable* a, GHashTable* b) {
    for (const auto* attribute = SECRET_SCHEMA_COMPAT_NETWORK->attributes; attribute->name; ++attribute) {
        if (g_strcmp0(static_cast<const char*>(g_hash_table_lookup(a, attribute->name)),
                      static_cast<const char*>(g_hash_table_lookup(b, attribute->name))) != 0)
            return false;
    }
    return true;
}

Ref<SecretItem> takeEqual(std::vector<Ref<SecretItem>>& items, GHashTable* attributes) {
    for (auto& item : items) {
        if (secret_item_get_locked(item.get()))
            continue;
        const AttributeTable own(secret_item_get_attributes(item.get()));
        if (haveEqualAttributes(own.get(), attributes))
            return std::move(item);
    }
    return nullptr;
}

} // namespace

std::int32_t Keyring::statusOf(const std::function<void()>& work) {
    const Operation operation;
    try {
        work();
        return Keychain::kSuccess;
    } catch (const KeyringFailure& failure) {
        return failure.status;
    }
}

std::shared_ptr<Keyring> Keyring::current() {
    static auto* const kept = new std::shared_ptr<Keyring>; // for good, as its main context
    if (*kept && !(*kept)->isAlive())
        kept->reset();
    if (!*kept)
        *kept = std::make_shared<Keyring>();
    return *kept;
}

Keyring::Keyring()
    : bus_(connect())
    , service_(open())
    , owner_(ownerOf(kServiceName)) {}

Ref<SecretItem> Keyring::find(GHashTable* attributes) {
    std::vector<Ref<SecretItem>> found = search(attributes);
    if (auto item = takeEqual(found, attributes))
        return item;
    std::vector<GDBusProxy*> locked;
    for (const auto& item : found) {
        if (secret_item_get_locked(item.get()))
            locked.push_back(G_DBUS_PROXY(item.get()));
    }
    const auto collection = defaultCollection();
    if (collection && secret_collection_get_locked(collection.get()))
        locked.push_back(G_DBUS_PROXY(collection.get()));
    if (locked.empty())
        return nullptr;
    unlock(locked);
    found = search(attributes);
    return takeEqual(found, attributes);
}

Ref<SecretItem> Keyring::create(GHashTable* attributes, const QByteArray& label, SecretValue* password) {
    const auto collection = unlockedDefaultCollection();
    Call call;
    secret_item_create(collection.get(), SECRET_SCHEMA_COMPAT_NETWORK, attributes, label.constData(),
                       password, SECRET_ITEM_CREATE_NONE, call.cancellable(), Call::onAnswer, &call);
    Ref<SecretItem> item(secret_item_create_finish(call.answer(), call.error()));
    call.check();
    return item;
}

QByteArray Keyring::password(SecretItem* item) {
    Call call;
    secret_item_load_secret(item, call.cancellable(), Call::onAnswer, &call);
    secret_item_load_secret_finish(item, call.answer(), call.error());
    call.check();
    const SecretBytes value(secret_item_get_secret(item));
    if (!value)
        throw KeyringFailure{Keychain::kItemNotFound};
    gsize length = 0;
    const char* const bytes = secret_value_get(value.get(), &length);
    return QByteArray(bytes, static_cast<qsizetype>(length));
}

void Keyring::setPassword(SecretItem* item, SecretValue* password) {
    Call call;
    secret_item_set_secret(item, password, call.cancellable(), Call::onAnswer, &call);
    secret_item_set_secret_finish(item, call.answer(), call.error());
    call.check();
}

void Keyring::setAttributes(SecretItem* item, GHashTable* attributes) {
    Call call;
    secret_item_set_attributes(item, nullptr, attributes, call.cancellable(), Call::onAnswer, &call);
    secret_item_set_attributes_finish(item, call.answer(), call.error());
    call.check();
}

Ref<GDBusConnection> Keyring::connect() {
    Call call;
    g_bus_get(G_BUS_TYPE_SESSION, call.cancellable(), Call::onAnswer, &call);
    Ref<GDBusConnection> bus(g_bus_get_finish(call.answer(), call.error()));
    call.check();
    // By default the end of the session bus would end this process.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    return bus;
}

Ref<SecretService> Keyring::open() {
    Call call;
    secret_service_open(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION, call.cancellable(),
                        Call::onAnswer, &call);
    Ref<SecretService> service(secret_service_open_finish(call.answer(), call.error()));
    call.check();
    return service;
}

bool Keyring::isAlive() const {
    return !owner_.empty() && ownerOf(kServiceName) == owner_;
}

/// Who has this name on the bus; empty where nobody has.
std::string Keyring::ownerOf(const char* name) const {
    Call call;
    g_dbus_connection_call(bus_.get(), kBusName, kBusPath, kBusName, "GetNameOwner",
                           g_variant_new("(s)", name), G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NONE, -1,
                           call.cancellable(), Call::onAnswer, &call);
    GVariant* const answer = g_dbus_connection_call_finish(bus_.get(), call.answer(), call.error());
    if (!answer)
        return {};
    const char* owner = nullptr;
    g_variant_get(answer, "(&s)", &owner);
    std::string text(owner);
    g_variant_unref(answer);
    return text;
}

std::vector<Ref<SecretItem>> Keyring::search(GHashTable* attributes) {
    Call call;
    // Without a schema: items made by other programs may have another schema's name, or none.
    secret_service_search(service_.get(), nullptr, attributes, SECRET_SEARCH_ALL, call.cancellable(),
                          Call::onAnswer, &call);
    GList* const list = secret_service_search_finish(service_.get(), call.answer(), call.error());
    std::vector<Ref<SecretItem>> items;
    for (const GList* element = list; element; element = element->next)
        items.emplace_back(SECRET_ITEM(element->data));
    g_list_free(list);
    call.check();
    return items;
}

Ref<SecretCollection> Keyring::defaultCollection() {
    Call call;
    secret_collection_for_alias(service_.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE,
                                call.cancellable(), Call::onAnswer, &call);
    Ref<SecretCollection> collection(secret_collection_for_alias_finish(call.answer(), call.error()));
    call.check();
    return collection;
}

Ref<SecretCollection> Keyring::unlockedDefaultCollection() {
    auto collection = defaultCollection();
    if (!collection)
        return createDefaultCollection();
    if (secret_collection_get_locked(collection.get()))
        unlock({G_DBUS_PROXY(collection.get())});
    return collection;
}

/// A new user's keyring: the desktop asks for the password that it shall have.
Ref<SecretCollection> Keyring::createDefaultCollection() {
    Call call(kPromptLimit);
    secret_collection_create(service_.get(), kNewCollectionLabel, SECRET_COLLECTION_DEFAULT,
                             SECRET_COLLECTION_CREATE_NONE, call.cancellable(), Call::onAnswer, &call);
    Ref<SecretCollection> collection(secret_collection_create_finish(call.answer(), call.error()));
    if (!collection)
        throw KeyringFailure{statusOfRefusal()};
    return collection;
}

/// Lets the desktop ask for the passwords.
void Keyring::unlock(const std::vector<GDBusProxy*>& objects) {
    GList* list = nullptr;
    for (auto* object : objects)
        list = g_list_prepend(list, object);
    Call call(kPromptLimit);
    secret_service_unlock(service_.get(), list, call.cancellable(), Call::onAnswer, &call);
    g_list_free(list);
    const int count = secret_service_unlock_finish(service_.get(), call.answer(), nullptr, call.error());
    if (count < static_cast<int>(objects.size()))
        throw KeyringFailure{statusOfRefusal()};
}

/// Nothing was unlocked: because the user refused, or because gnome-keyring had no way to ask. A prompter
/// that has just asked is still there.
std::int32_t Keyring::statusOfRefusal() const {
    return !ownerOf(kKeyringName).empty() && ownerOf(kPrompterName).empty() ? Keychain::kInteractionNotAllowed
                                                                            : Keychain::kAuthFailed;
}

} // namespace platform
