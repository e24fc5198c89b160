#include "Platform/Security/SecretService/GErrors.hpp"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform
{
namespace
{

using Kind = SecretServiceFailure::Kind;
using namespace std::string_view_literals;

// The bus itself says so: the service never saw the call.
constexpr std::array neverDelivered{"org.freedesktop.DBus.Error.ServiceUnknown"sv,
                                    "org.freedesktop.DBus.Error.NameHasNoOwner"sv,
                                    "org.freedesktop.Secret.Error.NoSession"sv};

// Nobody answers at the path.
constexpr std::array nothingThere{"org.freedesktop.DBus.Error.UnknownMethod"sv,
                                  "org.freedesktop.DBus.Error.UnknownObject"sv};

constexpr auto noSuchObject = "org.freedesktop.Secret.Error.NoSuchObject"sv;

template <std::size_t size>
bool isOneOf(const std::array<std::string_view, size>& names, std::string_view name)
{
    return std::ranges::find(names, name) != names.end();
}

SecretServiceFailure lost(Kind kind, bool changes)
{
    return {KeychainStatus::notAvailable,
            changes ? "The Secret Service ended during a change, which may have taken place or not"
                    : "The Secret Service ended during a call",
            "Try again; if it happens again, look at the keyring daemon's log", kind};
}

SecretServiceFailure remoteFailure(std::string_view name, bool changes, bool onService)
{
    if (isOneOf(neverDelivered, name))
        return lost(Kind::gone, false);
    // A daemon that starts can have its name on the bus before its objects.
    if (onService && isOneOf(nothingThere, name))
        return {KeychainStatus::notAvailable,
                "The Secret Service is not ready: it does not know a call that every service knows",
                "Try again; if it happens again, restart the keyring's daemon", Kind::gone};
    if (name == noSuchObject || isOneOf(nothingThere, name))
        return {KeychainStatus::notAvailable, "The Secret Service has no object of that path",
                "Try again", Kind::vanished};
    if (name == "org.freedesktop.Secret.Error.IsLocked")
        return secretServiceFailures::lockedItem();
    if (name == "org.freedesktop.DBus.Error.NoReply" ||
        name == "org.freedesktop.DBus.Error.Disconnected")
        return lost(Kind::answerLost, changes);
    return {KeychainStatus::notAvailable,
            "The Secret Service refused a call: " + std::string(name.substr(0, 100)),
            "Look at the keyring daemon's log"};
}

}  // namespace

bool isCancelled(const SecretLibrary& library, const GError& error)
{
    return error.domain == library.g_io_error_quark() && error.code == G_IO_ERROR_CANCELLED;
}

SecretServiceFailure failureOf(const SecretLibrary& library, const GHandle<GError>& error,
                               bool changes, bool onService)
{
    if (!error)
        return secretServiceFailures::nonsense("an error without a reason");
    if (isCancelled(library, *error))
        return secretServiceFailures::timeLimit();
    struct Name
    {
        const SecretLibrary& library;
        char* text;
        ~Name() { library.g_free(text); }
    } const name{library, library.g_dbus_error_get_remote_error(error.get())};
    if (name.text)
        return remoteFailure(name.text, changes, onService);
    if (error->domain != library.g_io_error_quark() || error->code == G_IO_ERROR_INVALID_ARGUMENT)
        return secretServiceFailures::nonsense("an answer of another type");
    // What is left are failures of the connection.
    return lost(Kind::answerLost, changes);
}

}  // namespace platform
