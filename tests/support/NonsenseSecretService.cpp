#include "tests/support/NonsenseSecretService.hpp"

#include <gio/gio.h>

#include <stdexcept>
#include <string_view>
#include <utility>

NonsenseSecretService::NonsenseSecretService(const std::string& busAddress)
{
    bus_ = g_dbus_connection_new_for_address_sync(
        busAddress.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
    if (!bus_)
        throw std::runtime_error("no bus");
    filter_ = g_dbus_connection_add_filter(bus_, &filter, this, nullptr);
    GVariant* const answer = g_dbus_connection_call_sync(
        bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", "org.freedesktop.secrets", guint32{0}), nullptr,
        G_DBUS_CALL_FLAGS_NONE, 20'000, nullptr, nullptr);
    if (!answer)
        throw std::runtime_error("the name is taken");
    g_variant_unref(answer);
}

NonsenseSecretService::~NonsenseSecretService()
{
    g_dbus_connection_close_sync(bus_, nullptr, nullptr);
    g_dbus_connection_remove_filter(bus_, filter_);
    // Takes the lock after the bus's thread had it, which may still have been answering.
    play({});
    g_object_unref(bus_);
}

void NonsenseSecretService::play(Script script)
{
    const std::lock_guard lock(mutex_);
    script_ = std::move(script);
}

// Runs on GLib's own thread for buses.
GDBusMessage* NonsenseSecretService::filter(GDBusConnection*, GDBusMessage* message, int isIncoming,
                                            void* self)
{
    if (!isIncoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return message;
    static_cast<NonsenseSecretService*>(self)->answer(message);
    g_object_unref(message);
    return nullptr;
}

void NonsenseSecretService::answer(GDBusMessage* call)
{
    // For all of it: whoever takes the lock later sees that this has ended.
    const std::lock_guard lock(mutex_);
    std::string name = g_dbus_message_get_member(call);
    if (name == "Get")
    {
        const char* property = nullptr;
        g_variant_get_child(g_dbus_message_get_body(call), 1, "&s", &property);
        name = property;
    }
    else if (name == "OpenSession")
    {
        const char* algorithm = nullptr;
        g_variant_get_child(g_dbus_message_get_body(call), 0, "&s", &algorithm);
        if (std::string_view(algorithm) == "plain")
            name += " plain";
    }
    std::string text = "!org.freedesktop.DBus.Error.UnknownMethod";
    if (const auto place = script_.find(name); place != script_.end())
        text = place->second;
    if (name == "Prompt")
        complete(g_dbus_message_get_path(call));
    if (text.empty())
        return;
    GDBusMessage* reply = nullptr;
    if (text.front() == '!')
        reply = g_dbus_message_new_method_error_literal(call, text.c_str() + 1, "as the test says");
    else
    {
        reply = g_dbus_message_new_method_reply(call);
        g_dbus_message_set_body(reply,
                                g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr));
    }
    g_dbus_connection_send_message(bus_, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(reply);
}

void NonsenseSecretService::complete(const char* prompt)
{
    const std::string text = script_["Completed"];
    if (script_.contains("Locked afterwards"))
        script_["Locked"] = script_["Locked afterwards"];
    if (!text.empty())
        g_dbus_connection_emit_signal(
            bus_, nullptr, prompt, "org.freedesktop.Secret.Prompt", "Completed",
            g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr), nullptr);
}
