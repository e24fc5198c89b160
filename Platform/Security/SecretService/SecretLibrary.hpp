#pragma once

#include <memory>
#include <string>

// The calls that take paths instead of objects are the ones without hidden round trips.
#define SECRET_API_SUBJECT_TO_CHANGE
#include <libsecret/secret.h>

// Everything that is called in libsecret, GIO, GObject and GLib.
#define TESSERA_SECRET_FUNCTIONS(X)           \
    X(g_cancellable_cancel)                   \
    X(g_cancellable_new)                      \
    X(g_cancellable_source_new)               \
    X(g_dbus_connection_call)                 \
    X(g_dbus_connection_call_finish)          \
    X(g_dbus_connection_is_closed)            \
    X(g_dbus_connection_new_for_address_sync) \
    X(g_dbus_connection_set_exit_on_close)    \
    X(g_dbus_connection_signal_subscribe)     \
    X(g_dbus_connection_signal_unsubscribe)   \
    X(g_dbus_error_get_remote_error)          \
    X(g_dbus_proxy_get_type)                  \
    X(g_error_free)                           \
    X(g_free)                                 \
    X(g_initable_new)                         \
    X(g_io_error_quark)                       \
    X(g_main_context_iteration)               \
    X(g_main_context_new)                     \
    X(g_main_context_pop_thread_default)      \
    X(g_main_context_push_thread_default)     \
    X(g_main_context_unref)                   \
    X(g_object_unref)                         \
    X(g_source_attach)                        \
    X(g_source_destroy)                       \
    X(g_source_set_callback)                  \
    X(g_source_unref)                         \
    X(g_type_class_ref)                       \
    X(g_type_from_name)                       \
    X(g_type_query)                           \
    X(g_type_register_static)                 \
    X(g_variant_builder_add)                  \
    X(g_variant_builder_end)                  \
    X(g_variant_builder_init)                 \
    X(g_variant_get_boolean)                  \
    X(g_variant_get_child_value)              \
    X(g_variant_get_string)                   \
    X(g_variant_get_uint64)                   \
    X(g_variant_get_variant)                  \
    X(g_variant_is_of_type)                   \
    X(g_variant_lookup_value)                 \
    X(g_variant_n_children)                   \
    X(g_variant_new)                          \
    X(g_variant_ref_sink)                     \
    X(g_variant_unref)                        \
    X(secret_service_decode_dbus_secret)      \
    X(secret_service_encode_dbus_secret)      \
    X(secret_service_ensure_session)          \
    X(secret_service_ensure_session_finish)   \
    X(secret_service_get_session_algorithms)  \
    X(secret_service_get_session_dbus_path)   \
    X(secret_service_get_type)                \
    X(secret_value_get)                       \
    X(secret_value_new_full)                  \
    X(secret_value_unref)

namespace platform
{

/// libsecret and what it brings with it, found when the program runs: the members are the functions
/// of the same names. Nothing here may be called in another way, nor any macro that calls one, or
/// programs would no longer start where the library is absent. Any thread may use it.
class SecretLibrary
{
public:
    /// Loads the library at the first call, and keeps it until the process ends, for GLib cannot be
    /// unloaded. Throws `SecretServiceFailure` where it is absent; the next call tries again.
    static const SecretLibrary& load(const std::string& name);

#define TESSERA_SECRET_MEMBER(function) decltype(&::function) function = nullptr;
    TESSERA_SECRET_FUNCTIONS(TESSERA_SECRET_MEMBER)
#undef TESSERA_SECRET_MEMBER

private:
    SecretLibrary() = default;
};

struct GRelease
{
    const SecretLibrary* library;

    void operator()(GVariant* variant) const { library->g_variant_unref(variant); }
    void operator()(GError* error) const { library->g_error_free(error); }
    void operator()(GMainContext* context) const { library->g_main_context_unref(context); }
    void operator()(GCancellable* object) const { library->g_object_unref(object); }
    void operator()(GDBusConnection* object) const { library->g_object_unref(object); }
    void operator()(SecretService* object) const { library->g_object_unref(object); }
    void operator()(SecretValue* value) const { library->secret_value_unref(value); }
};

/// A counted reference of GLib that is given back. Made with the library: `{pointer, {&library}}`.
template <class T>
using GHandle = std::unique_ptr<T, GRelease>;

/// GLib's macro for this calls a function.
inline const GVariantType* variantType(const char* text)
{
    return reinterpret_cast<const GVariantType*>(text);
}

}  // namespace platform
