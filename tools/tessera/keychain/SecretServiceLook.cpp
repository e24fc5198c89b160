#include "tools/tessera/keychain/SecretServiceLook.hpp"

#include <gio/gio.h>

#include <dlfcn.h>

#include <cstdlib>
#include <memory>

// Found when the program runs: it works where GLib is absent.
#define COMMANDLINE_GLIB_FUNCTIONS(X)         \
    X(g_dbus_connection_call_sync)            \
    X(g_dbus_connection_close_sync)           \
    X(g_dbus_connection_new_for_address_sync) \
    X(g_free)                                 \
    X(g_object_unref)                         \
    X(g_variant_get)                          \
    X(g_variant_get_boolean)                  \
    X(g_variant_new)                          \
    X(g_variant_print)                        \
    X(g_variant_unref)

namespace commandline
{
namespace
{

struct GLib
{
#define COMMANDLINE_GLIB_MEMBER(function) decltype(&::function) function = nullptr;
    COMMANDLINE_GLIB_FUNCTIONS(COMMANDLINE_GLIB_MEMBER)
#undef COMMANDLINE_GLIB_MEMBER

    /// False where libsecret, which brings GLib, or a function is absent.
    bool load()
    {
        void* const library = ::dlopen("libsecret-1.so.0", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            return false;
        bool all = true;
#define COMMANDLINE_GLIB_FIND(name)                                      \
    name = reinterpret_cast<decltype(&::name)>(::dlsym(library, #name)); \
    all = all && name != nullptr;
        COMMANDLINE_GLIB_FUNCTIONS(COMMANDLINE_GLIB_FIND)
#undef COMMANDLINE_GLIB_FIND
        return all;
    }
};

std::string busAddress()
{
    if (const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
        address != nullptr && *address != '\0')
        return address;
    const char* folder = std::getenv("XDG_RUNTIME_DIR");
    return folder == nullptr ? "" : std::string("unix:path=") + folder + "/bus";
}

/// A connection of its own to the session bus, as long as it lives.
class Bus
{
public:
    explicit Bus(const GLib& glib) : glib_(glib)
    {
        const auto address = busAddress();
        constexpr auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        if (!address.empty())
            connection_ = glib.g_dbus_connection_new_for_address_sync(address.c_str(), flags,
                                                                      nullptr, nullptr, nullptr);
    }
    ~Bus()
    {
        if (connection_ == nullptr)
            return;
        glib_.g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        glib_.g_object_unref(connection_);
    }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    bool isOpen() const { return connection_ != nullptr; }

    struct Unref
    {
        const GLib* glib;
        void operator()(GVariant* variant) const { glib->g_variant_unref(variant); }
    };
    using Answer = std::unique_ptr<GVariant, Unref>;

    /// Null for any failure. Starts nothing.
    Answer call(const char* name, const std::string& path, const char* interface,
                const char* method, GVariant* arguments) const
    {
        constexpr int milliseconds = 2000;
        return {glib_.g_dbus_connection_call_sync(
                    connection_, name, path.c_str(), interface, method, arguments, nullptr,
                    G_DBUS_CALL_FLAGS_NO_AUTO_START, milliseconds, nullptr, nullptr),
                {&glib_}};
    }
    Answer callBus(const char* method, GVariant* arguments) const
    {
        return call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                    arguments);
    }

private:
    const GLib& glib_;
    GDBusConnection* connection_ = nullptr;
};

constexpr auto serviceName = "org.freedesktop.secrets";

void lookAtService(const GLib& glib, const Bus& bus, SecretServiceFacts& facts)
{
    const auto owned = bus.callBus("NameHasOwner", glib.g_variant_new("(s)", serviceName));
    gboolean runs = FALSE;
    if (owned)
        glib.g_variant_get(owned.get(), "(b)", &runs);
    facts.isRunning = runs != FALSE;
    if (const auto names = bus.callBus("ListActivatableNames", nullptr))
    {
        gchar* const text = glib.g_variant_print(names.get(), FALSE);
        facts.canBeStarted = std::string(text).find(serviceName) != std::string::npos;
        glib.g_free(text);
    }
}

void lookAtCollection(const GLib& glib, const Bus& bus, SecretServiceFacts& facts)
{
    const auto alias =
        bus.call(serviceName, "/org/freedesktop/secrets", "org.freedesktop.Secret.Service",
                 "ReadAlias", glib.g_variant_new("(s)", "default"));
    if (!alias)
        return;
    const gchar* path = nullptr;
    glib.g_variant_get(alias.get(), "(&o)", &path);
    facts.hasCollection = std::string(path) != "/";
    if (!facts.hasCollection)
        return;
    const auto answer =
        bus.call(serviceName, path, "org.freedesktop.DBus.Properties", "Get",
                 glib.g_variant_new("(ss)", "org.freedesktop.Secret.Collection", "Locked"));
    GVariant* locked = nullptr;
    if (answer)
        glib.g_variant_get(answer.get(), "(v)", &locked);
    facts.isLocked = locked == nullptr || glib.g_variant_get_boolean(locked) != FALSE;
    if (locked != nullptr)
        glib.g_variant_unref(locked);
}

}  // namespace

SecretServiceFacts lookAtSecretService()
{
    SecretServiceFacts facts;
    GLib glib;
    facts.hasLibrary = glib.load();
    if (!facts.hasLibrary)
        return facts;
    const Bus bus(glib);
    facts.hasBus = bus.isOpen();
    if (facts.hasBus)
        lookAtService(glib, bus, facts);
    if (facts.isRunning)
        lookAtCollection(glib, bus, facts);
    return facts;
}

}  // namespace commandline
