#include "tests/support/GBusForTest.hpp"

#include <gio/gio.h>

#include <stdexcept>

namespace
{

constexpr const char* serviceName = "org.freedesktop.secrets";
constexpr const char* servicePath = "/org/freedesktop/secrets";
constexpr const char* serviceInterface = "org.freedesktop.Secret.Service";
constexpr const char* collectionInterface = "org.freedesktop.Secret.Collection";
constexpr const char* internalInterface =
    "org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface";
constexpr int limit = 20'000;

std::string pathOf(const std::string& alias)
{
    return std::string(servicePath) + "/aliases/" + alias;
}

[[noreturn]] void fail(GError* error)
{
    const std::string text = error ? error->message : "no reason";
    g_clear_error(&error);
    throw std::runtime_error(text);
}

GVariant* variant(const GBusForTest::Attributes& attributes)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{ss}"));
    for (const auto& [key, value] : attributes)
        g_variant_builder_add(&builder, "{ss}", key.c_str(), value.c_str());
    return g_variant_builder_end(&builder);
}

GVariant* bytes(const std::string& text)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1);
}

GVariant* label(const char* property)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&builder, "{sv}", property, g_variant_new_string("of a test"));
    return g_variant_builder_end(&builder);
}

}  // namespace

GBusForTest::GBusForTest(const std::string& address)
{
    GError* error = nullptr;
    bus_ = g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, &error);
    if (!bus_)
        fail(error);
}

GBusForTest::~GBusForTest()
{
    g_object_unref(bus_);
}

GVariant* GBusForTest::call(const std::string& path, const char* interface, const char* method,
                            GVariant* arguments) const
{
    GError* error = nullptr;
    GVariant* const answer =
        g_dbus_connection_call_sync(bus_, serviceName, path.c_str(), interface, method, arguments,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, limit, nullptr, &error);
    if (!answer)
        fail(error);
    return answer;
}

void GBusForTest::awaitName(const char* name) const
{
    GMainContext* const context = g_main_context_new();
    g_main_context_push_thread_default(context);
    bool state[] = {false, false};
    const auto appeared = [](GDBusConnection*, const gchar*, const gchar*, gpointer data)
    { static_cast<bool*>(data)[0] = true; };
    const auto late = [](gpointer data) -> gboolean
    {
        static_cast<bool*>(data)[1] = true;
        return G_SOURCE_REMOVE;
    };
    const guint watch = g_bus_watch_name_on_connection(bus_, name, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                       appeared, nullptr, state, nullptr);
    GSource* const timer = g_timeout_source_new(limit);
    g_source_set_callback(timer, late, state, nullptr);
    g_source_attach(timer, context);
    while (!state[0] && !state[1])
        g_main_context_iteration(context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
    g_bus_unwatch_name(watch);
    while (g_main_context_iteration(context, FALSE))
        ;
    g_main_context_pop_thread_default(context);
    g_main_context_unref(context);
    if (!state[0])
        throw std::runtime_error(std::string("nobody took the name ") + name);
}

void GBusForTest::lockAll() const
{
    GVariant* const answer = call(servicePath, "org.freedesktop.DBus.Properties", "Get",
                                  g_variant_new("(ss)", serviceInterface, "Collections"));
    GVariant* list = nullptr;
    g_variant_get(answer, "(v)", &list);
    g_variant_unref(call(servicePath, serviceInterface, "Lock", g_variant_new("(@ao)", list)));
    g_variant_unref(list);
    g_variant_unref(answer);
}

std::string GBusForTest::openPlainSession() const
{
    GVariant* const answer = call(servicePath, serviceInterface, "OpenSession",
                                  g_variant_new("(sv)", "plain", g_variant_new_string("")));
    const char* path = nullptr;
    g_variant_get_child(answer, 1, "&o", &path);
    const std::string session = path;
    g_variant_unref(answer);
    return session;
}

GVariant* GBusForTest::plainSecret(const std::string& secret) const
{
    return g_variant_new("(o@ay@ays)", openPlainSession().c_str(), bytes(""), bytes(secret),
                         "text/plain");
}

void GBusForTest::unlock(const std::string& password) const
{
    g_variant_unref(
        call(servicePath, internalInterface, "UnlockWithMasterPassword",
             g_variant_new("(o@(oayays))", pathOf("default").c_str(), plainSecret(password))));
}

void GBusForTest::makeCollection(const std::string& password) const
{
    g_variant_unref(
        call(servicePath, internalInterface, "CreateWithMasterPassword",
             g_variant_new("(@a{sv}@(oayays))", label("org.freedesktop.Secret.Collection.Label"),
                           plainSecret(password))));
}

void GBusForTest::store(const std::string& alias, const Attributes& attributes,
                        const std::string& secret, bool replacing) const
{
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Label",
                          g_variant_new_string("of a test"));
    g_variant_builder_add(&properties, "{sv}", "org.freedesktop.Secret.Item.Attributes",
                          variant(attributes));
    g_variant_unref(call(pathOf(alias), collectionInterface, "CreateItem",
                         g_variant_new("(@a{sv}@(oayays)b)", g_variant_builder_end(&properties),
                                       plainSecret(secret), gboolean{replacing})));
}

std::vector<std::string> GBusForTest::find(const Attributes& attributes) const
{
    GVariant* const answer = call(servicePath, serviceInterface, "SearchItems",
                                  g_variant_new("(@a{ss})", variant(attributes)));
    std::vector<std::string> paths;
    for (gsize side = 0; side < 2; ++side)
    {
        GVariant* const list = g_variant_get_child_value(answer, side);
        for (gsize index = 0; index < g_variant_n_children(list); ++index)
        {
            const char* path = nullptr;
            g_variant_get_child(list, index, "&o", &path);
            paths.emplace_back(path);
        }
        g_variant_unref(list);
    }
    g_variant_unref(answer);
    return paths;
}

bool GBusForTest::hasUnlockedDefault() const
{
    try
    {
        GVariant* const answer = call(pathOf("default"), "org.freedesktop.DBus.Properties", "Get",
                                      g_variant_new("(ss)", collectionInterface, "Locked"));
        GVariant* value = nullptr;
        g_variant_get(answer, "(v)", &value);
        const bool locked = g_variant_get_boolean(value);
        g_variant_unref(value);
        g_variant_unref(answer);
        return !locked;
    }
    catch (const std::runtime_error&)
    {
        return false;
    }
}
