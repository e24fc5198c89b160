#define SECRET_API_SUBJECT_TO_CHANGE
#include "benchmarks/BareSecretService.hpp"

#include <libsecret/secret.h>

#include <deque>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace
{

constexpr const char* busName = "org.freedesktop.secrets";
constexpr const char* servicePath = "/org/freedesktop/secrets";
constexpr const char* serviceInterface = "org.freedesktop.Secret.Service";
constexpr const char* collectionInterface = "org.freedesktop.Secret.Collection";
constexpr const char* itemInterface = "org.freedesktop.Secret.Item";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* newItems = "/org/freedesktop/secrets/aliases/default";
constexpr const char* label = "Tessera item";

template <auto release>
struct Releasing
{
    template <class Object>
    void operator()(Object* object) const
    {
        release(object);
    }
};
using Variant = std::unique_ptr<GVariant, Releasing<g_variant_unref>>;
using Value = std::unique_ptr<SecretValue, Releasing<secret_value_unref>>;
using Table = std::unique_ptr<GHashTable, Releasing<g_hash_table_unref>>;
using Texts = std::unique_ptr<gchar*, Releasing<g_strfreev>>;

void require(bool good, const char* what)
{
    if (!good)
        throw std::runtime_error(what);
}

void require(bool good, GError* error)
{
    const std::unique_ptr<GError, Releasing<g_error_free>> owned(error);
    require(good, error ? error->message : "libsecret failed");
}

Value secretOf(const std::string& value)
{
    return Value(secret_value_new(value.data(), static_cast<gssize>(value.size()), "text/plain"));
}

std::string textOf(const Value& value)
{
    require(value != nullptr, "no such item");
    gsize size = 0;
    const char* const text = secret_value_get(value.get(), &size);
    return {text, size};
}

Variant call(SecretService* service, const char* path, const char* method, GVariant* arguments,
             const char* answerType)
{
    GError* error = nullptr;
    Variant answer(g_dbus_connection_call_sync(
        g_dbus_proxy_get_connection(G_DBUS_PROXY(service)), busName, path, propertiesInterface,
        method, arguments, G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr,
        &error));
    require(answer != nullptr, error);
    return answer;
}

Variant unpacked(const Variant& answer)
{
    GVariant* value = nullptr;
    g_variant_get(answer.get(), "(v)", &value);
    return Variant(value);
}

/// Calls that are under way together, as the synchronous functions cannot have them.
class Together
{
public:
    explicit Together(SecretService* service)
        : bus_(g_dbus_proxy_get_connection(G_DBUS_PROXY(service)))
    {}

    void call(const char* path, const char* interface, const char* method, GVariant* arguments,
              const char* answerType)
    {
        // Where it is stays the same when others come after it.
        auto& pending = pending_.emplace_back(Pending{this, nullptr});
        ++open_;
        g_dbus_connection_call(bus_, busName, path, interface, method, arguments,
                               G_VARIANT_TYPE(answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START, -1,
                               nullptr, &Together::answered, &pending);
    }

    /// The answers in the order of the calls.
    std::vector<Variant> wait()
    {
        while (open_ > 0)
            g_main_context_iteration(nullptr, TRUE);
        require(!error_, error_);
        std::vector<Variant> answers;
        for (auto& pending : pending_)
            answers.push_back(std::move(pending.answer));
        return answers;
    }

private:
    struct Pending
    {
        Together* all;
        Variant answer;
    };

    static void answered(GObject* bus, GAsyncResult* result, gpointer data)
    {
        auto& pending = *static_cast<Pending*>(data);
        auto& all = *pending.all;
        --all.open_;
        pending.answer.reset(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result,
                                                           all.error_ ? nullptr : &all.error_));
    }

    GDBusConnection* bus_;
    std::size_t open_ = 0;
    GError* error_ = nullptr;
    std::deque<Pending> pending_;
};

GVariant* dictionary(GHashTable* attributes)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    GHashTableIter place;
    gpointer key = nullptr;
    gpointer text = nullptr;
    g_hash_table_iter_init(&place, attributes);
    while (g_hash_table_iter_next(&place, &key, &text))
        g_variant_builder_add(&builder, "{ss}", key, text);
    return g_variant_builder_end(&builder);
}

}  // namespace

class BareSecretService::Attributes
{
public:
    Attributes() : table_(g_hash_table_new_full(g_str_hash, g_str_equal, nullptr, g_free)) {}

    void add(const char* key, const char* value)
    {
        g_hash_table_insert(table_.get(), const_cast<char*>(key), g_strdup(value));
    }
    GHashTable* get() const { return table_.get(); }

private:
    Table table_;
};

BareSecretService::BareSecretService(std::string service) : serviceName_(std::move(service))
{
    GError* error = nullptr;
    service_ = secret_service_open_sync(SECRET_TYPE_SERVICE, nullptr, SECRET_SERVICE_OPEN_SESSION,
                                        nullptr, &error);
    require(service_ != nullptr, error);
    require(std::string(secret_service_get_session_algorithms(service_)) != "plain",
            "the session is not encrypted");
    g_dbus_connection_set_exit_on_close(g_dbus_proxy_get_connection(G_DBUS_PROXY(service_)), FALSE);
}

BareSecretService::~BareSecretService()
{
    g_object_unref(service_);
}

BareSecretService::Attributes BareSecretService::identity(const std::string& account) const
{
    Attributes attributes;
    attributes.add("xdg:schema", "net.ostra.Tessera.Item");
    attributes.add("service", serviceName_.c_str());
    attributes.add("account", account.c_str());
    attributes.add("accessGroup", "benchmark");
    attributes.add("synchronizable", "false");
    return attributes;
}

std::optional<std::string> BareSecretService::search(const Attributes& attributes)
{
    gchar** unlocked = nullptr;
    gchar** locked = nullptr;
    GError* error = nullptr;
    require(secret_service_search_for_dbus_paths_sync(service_, nullptr, attributes.get(), nullptr,
                                                      &unlocked, &locked, &error),
            error);
    const Texts found(unlocked);
    const Texts hidden(locked);
    require(!*locked, "the item is locked");
    return *unlocked ? std::optional<std::string>(*unlocked) : std::nullopt;
}

void BareSecretService::requireUnlocked(const std::string& itemPath)
{
    const auto answer =
        call(service_, itemPath.c_str(), "GetAll", g_variant_new("(s)", itemInterface), "(a{sv})");
    const Variant properties(g_variant_get_child_value(answer.get(), 0));
    gboolean locked = TRUE;
    require(g_variant_lookup(properties.get(), "Locked", "b", &locked) && !locked,
            "the item is locked");
}

void BareSecretService::requireNothingHidden(const Attributes& attributes)
{
    const auto list = unpacked(call(service_, servicePath, "Get",
                                    g_variant_new("(ss)", serviceInterface, "Collections"), "(v)"));
    const std::unique_ptr<const gchar*, Releasing<g_free>> paths(
        g_variant_get_objv(list.get(), nullptr));
    Together calls(service_);
    for (const gchar* const* path = paths.get(); *path; ++path)
        calls.call(*path, propertiesInterface, "Get",
                   g_variant_new("(ss)", collectionInterface, "Locked"), "(v)");
    calls.call(servicePath, serviceInterface, "SearchItems",
               g_variant_new("(@a{ss})", dictionary(attributes.get())), "(aoao)");
    auto answers = calls.wait();
    const auto found = std::move(answers.back());
    answers.pop_back();
    for (const auto& answer : answers)
        require(!g_variant_get_boolean(unpacked(answer).get()), "a collection is locked");
    for (const gsize side : {gsize{0}, gsize{1}})
        require(
            g_variant_n_children(Variant(g_variant_get_child_value(found.get(), side)).get()) == 0,
            "the item was hidden");
}

std::optional<std::string> BareSecretService::lookFor(const Attributes& attributes)
{
    auto path = search(attributes);
    if (path)
        requireUnlocked(*path);
    else
        requireNothingHidden(attributes);
    return path;
}

void BareSecretService::create(const std::string& collection, Attributes& attributes,
                               const std::string& value)
{
    attributes.add("accessible", "2");
    attributes.add("accessControl", "0");
    const Table properties(
        g_hash_table_new_full(g_str_hash, g_str_equal, nullptr,
                              [](gpointer one) { g_variant_unref(static_cast<GVariant*>(one)); }));
    const auto set = [&properties](const char* name, GVariant* one)
    { g_hash_table_insert(properties.get(), const_cast<char*>(name), g_variant_ref_sink(one)); };
    set("org.freedesktop.Secret.Item.Label", g_variant_new_string(label));
    set("org.freedesktop.Secret.Item.Attributes", dictionary(attributes.get()));

    GError* error = nullptr;
    const std::unique_ptr<gchar, Releasing<g_free>> path(secret_service_create_item_dbus_path_sync(
        service_, collection.c_str(), properties.get(), secretOf(value).get(),
        SECRET_ITEM_CREATE_REPLACE, nullptr, &error));
    require(path != nullptr, error);
}

void BareSecretService::set(const std::string& account, const std::string& value)
{
    auto attributes = identity(account);
    lookFor(attributes);
    const auto path = lookFor(attributes);
    create(path ? path->substr(0, path->rfind('/')) : newItems, attributes, value);
}

std::string BareSecretService::get(const std::string& account)
{
    const auto path = search(identity(account));
    require(path.has_value(), "no such item");
    GError* error = nullptr;
    const Value value(
        secret_service_get_secret_for_dbus_path_sync(service_, path->c_str(), nullptr, &error));
    require(value != nullptr, error);
    return textOf(value);
}

bool BareSecretService::exists(const std::string& account)
{
    return lookFor(identity(account)).has_value();
}

void BareSecretService::remove(const std::string& account)
{
    const auto path = lookFor(identity(account));
    require(path.has_value(), "no such item");
    GError* error = nullptr;
    require(
        secret_service_delete_item_dbus_path_sync(service_, path->c_str(), nullptr, &error) != 0,
        error);
}

void BareSecretService::plainStore(const std::string& account, const std::string& value)
{
    auto attributes = identity(account);
    attributes.add("accessible", "2");
    attributes.add("accessControl", "0");
    GError* error = nullptr;
    require(
        secret_service_store_sync(service_, nullptr, attributes.get(), SECRET_COLLECTION_DEFAULT,
                                  label, secretOf(value).get(), nullptr, &error) != 0,
        error);
}

std::string BareSecretService::plainLookup(const std::string& account)
{
    GError* error = nullptr;
    const Value value(
        secret_service_lookup_sync(service_, nullptr, identity(account).get(), nullptr, &error));
    require(!error, error);
    return textOf(value);
}

bool BareSecretService::plainSearch(const std::string& account)
{
    return search(identity(account)).has_value();
}

void BareSecretService::plainClear(const std::string& account)
{
    GError* error = nullptr;
    require(
        secret_service_clear_sync(service_, nullptr, identity(account).get(), nullptr, &error) != 0,
        error);
}
