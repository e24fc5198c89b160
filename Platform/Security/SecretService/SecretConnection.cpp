#include "Platform/Security/SecretService/SecretConnection.hpp"

#include "Platform/Security/SecretService/GErrors.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "Platform/Security/SecretService/SecretServiceNames.hpp"

#include <climits>
#include <cstring>
#include <utility>

namespace platform
{

using namespace secretServiceNames;

namespace
{

using Kind = SecretServiceFailure::Kind;

/// How many calls are under way at once; a bus limits the answers that one connection may await.
constexpr std::size_t callsAtOnce = 128;

/// One call under way. The callback runs on this thread, inside `g_main_context_iteration`.
struct Pending
{
    const SecretLibrary* library;
    std::size_t* open;
    GVariant* answer = nullptr;
    GError* error = nullptr;

    static void finished(GObject* source, GAsyncResult* result, gpointer data)
    {
        auto& pending = *static_cast<Pending*>(data);
        pending.answer = pending.library->g_dbus_connection_call_finish(
            reinterpret_cast<GDBusConnection*>(source), result, &pending.error);
        --*pending.open;
    }
};

/// libsecret's own constructor of a service insists on the process's shared connection to the bus,
/// which ends the process with the bus unless the host has seen to it. This class differs in that
/// it is constructed as any other proxy is.
GType privateServiceType(const SecretLibrary& library)
{
    static constexpr const char* name = "TesseraSecretService";
    // Another copy of this code in the process may have been first.
    if (const GType existing = library.g_type_from_name(name))
        return existing;
    const auto initialise = [](gpointer type, gpointer proxyType)
    {
        static_cast<GObjectClass*>(type)->constructor =
            static_cast<GObjectClass*>(proxyType)->constructor;
    };
    GTypeQuery base;
    library.g_type_query(library.secret_service_get_type(), &base);
    GTypeInfo info{};
    info.class_size = static_cast<guint16>(base.class_size);
    info.class_init = initialise;
    info.instance_size = static_cast<guint16>(base.instance_size);
    info.class_data = library.g_type_class_ref(library.g_dbus_proxy_get_type());
    return library.g_type_register_static(library.secret_service_get_type(), name, &info,
                                          GTypeFlags{});
}

GType registeredServiceType(const SecretLibrary& library)
{
    static const GType type = privateServiceType(library);
    return type;
}

}  // namespace

SecretConnection::SecretConnection(const SecretLibrary& library, std::string busAddress)
    : library_(library),
      busAddress_(std::move(busAddress)),
      bus_(nullptr, GRelease{&library}),
      service_(nullptr, GRelease{&library})
{}

void SecretConnection::open(const GWork& at)
{
    if (bus_ && library_.g_dbus_connection_is_closed(bus_.get()))
        close();
    if (service_)
        return;
    close();
    try
    {
        connect(at);
        findOwner(at);
        openSession(at);
    }
    catch (...)
    {
        close();
        throw;
    }
}

void SecretConnection::close() noexcept
{
    service_.reset();
    bus_.reset();
    owner_.clear();
}

void SecretConnection::connect(const GWork& at)
{
    if (busAddress_.empty())
        throw SecretServiceFailure(KeychainStatus::notAvailable, "There is no session bus",
                                   "Start the program in a desktop session, set "
                                   "DBUS_SESSION_BUS_ADDRESS, or use the embedded keychain");
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    GError* error = nullptr;
    bus_.reset(library_.g_dbus_connection_new_for_address_sync(busAddress_.c_str(), flags, nullptr,
                                                               at.cancellable, &error));
    if (!bus_)
    {
        const GHandle<GError> owned(error, GRelease{&library_});
        if (isCancelled(library_, *owned))
            throw secretServiceFailures::timeLimit();
        throw SecretServiceFailure(KeychainStatus::notAvailable,
                                   "The session bus does not take connections",
                                   "Log in again so that the session bus is started, or correct "
                                   "DBUS_SESSION_BUS_ADDRESS");
    }
    library_.g_dbus_connection_set_exit_on_close(bus_.get(), FALSE);
}

GHandle<GVariant> SecretConnection::callBus(const char* method, GVariant* arguments,
                                            const char* answerType, const GWork& at)
{
    std::size_t open = 1;
    Pending pending{&library_, &open};
    library_.g_dbus_connection_call(bus_.get(), busName, busPath, busName, method, arguments,
                                    variantType(answerType), G_DBUS_CALL_FLAGS_NONE, INT_MAX,
                                    at.cancellable, &Pending::finished, &pending);
    while (open > 0)
        library_.g_main_context_iteration(at.context, TRUE);
    GHandle<GVariant> answer(pending.answer, GRelease{&library_});
    if (!answer)
        throw failureOf(library_, GHandle<GError>(pending.error, GRelease{&library_}), false);
    return answer;
}

bool SecretConnection::findRunning(const GWork& at)
{
    try
    {
        const auto answer =
            callBus("GetNameOwner", library_.g_variant_new("(s)", serviceName), "(s)", at);
        const GHandle<GVariant> name(library_.g_variant_get_child_value(answer.get(), 0),
                                     GRelease{&library_});
        owner_ = library_.g_variant_get_string(name.get(), nullptr);
        return true;
    }
    catch (const SecretServiceFailure& failure)
    {
        if (failure.kind() != SecretServiceFailure::Kind::gone)
            throw;
        return false;
    }
}

void SecretConnection::findOwner(const GWork& at)
{
    if (findRunning(at))
        return;
    try
    {
        // Where the bus knows how to start the service; it limits how long that takes.
        callBus("StartServiceByName", library_.g_variant_new("(su)", serviceName, guint32{0}),
                "(u)", at);
        if (findRunning(at))
            return;
    }
    catch (const SecretServiceFailure& failure)
    {
        if (failure.kind() == SecretServiceFailure::Kind::cancelled ||
            failure.kind() == SecretServiceFailure::Kind::answerLost)
            throw;
    }
    throw SecretServiceFailure(KeychainStatus::notAvailable,
                               "No program offers the Secret Service on the session bus",
                               "Install and start a keyring such as gnome-keyring, or use the "
                               "embedded keychain");
}

void SecretConnection::openSession(const GWork& at)
{
    constexpr auto flags = static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES |
                                                        G_DBUS_PROXY_FLAGS_DO_NOT_CONNECT_SIGNALS);
    GError* error = nullptr;
    service_.reset(static_cast<SecretService*>(library_.g_initable_new(
        registeredServiceType(library_), at.cancellable, &error, "g-bus-type", G_BUS_TYPE_NONE,
        "g-connection", bus_.get(), "g-name", owner_.c_str(), "g-object-path", servicePath,
        "g-interface-name", serviceInterface, "g-flags", flags, nullptr)));
    if (!service_)
        throw failureOf(library_, GHandle<GError>(error, GRelease{&library_}), false);

    struct Ensuring
    {
        const SecretLibrary* library;
        bool done = false;
        bool succeeded = false;
        GError* error = nullptr;
    } ensuring{&library_};
    const auto finished = [](GObject* source, GAsyncResult* result, gpointer data)
    {
        auto& state = *static_cast<Ensuring*>(data);
        state.succeeded = state.library->secret_service_ensure_session_finish(
            reinterpret_cast<SecretService*>(source), result, &state.error);
        state.done = true;
    };
    library_.secret_service_ensure_session(service_.get(), at.cancellable, finished, &ensuring);
    while (!ensuring.done)
        library_.g_main_context_iteration(at.context, TRUE);
    if (!ensuring.succeeded)
        throw failureOf(library_, GHandle<GError>(ensuring.error, GRelease{&library_}), false,
                        true);

    // libsecret goes on without encryption where the service knows none. Nothing was sent yet.
    const char* algorithms = library_.secret_service_get_session_algorithms(service_.get());
    if (!algorithms || std::strcmp(algorithms, "plain") == 0)
        throw SecretServiceFailure(KeychainStatus::notAvailable,
                                   "The Secret Service offers no encrypted session",
                                   "Update the desktop's keyring, or use the embedded keychain");
}

std::optional<GHandle<GVariant>> SecretConnection::call(SecretCall call, const GWork& at)
{
    std::vector<SecretCall> calls;
    calls.push_back(std::move(call));
    return std::move(callAll(std::move(calls), at).front());
}

std::vector<std::optional<GHandle<GVariant>>> SecretConnection::callAll(
    std::vector<SecretCall> calls, const GWork& at)
{
    std::size_t open = 0;
    // Never reallocated: the callbacks hold addresses.
    std::vector<Pending> pending(calls.size(), Pending{&library_, &open});
    for (std::size_t index = 0; index < calls.size(); ++index)
    {
        auto& call = calls[index];
        ++open;
        library_.g_dbus_connection_call(
            bus_.get(), owner_.c_str(), call.path.c_str(), call.interface, call.method,
            call.arguments.get(), variantType(call.answerType), G_DBUS_CALL_FLAGS_NO_AUTO_START,
            INT_MAX, at.cancellable, &Pending::finished, &pending[index]);
        while (open >= callsAtOnce)
            library_.g_main_context_iteration(at.context, TRUE);
    }
    while (open > 0)
        library_.g_main_context_iteration(at.context, TRUE);

    std::vector<std::optional<GHandle<GVariant>>> answers;
    std::optional<SecretServiceFailure> failure;
    for (std::size_t index = 0; index < calls.size(); ++index)
    {
        if (pending[index].answer)
        {
            answers.emplace_back(GHandle<GVariant>(pending[index].answer, GRelease{&library_}));
            continue;
        }
        answers.emplace_back();
        auto one = failureOf(library_, GHandle<GError>(pending[index].error, GRelease{&library_}),
                             calls[index].changes, calls[index].path == servicePath);
        // One that was given up comes before all others: it is what its caller may have to settle.
        if (one.kind() == Kind::cancelled || (one.kind() != Kind::vanished && !failure))
            failure = std::move(one);
    }
    if (failure)
        throw std::move(*failure);
    return answers;
}

void SecretConnection::settle(const GWork& at) noexcept
{
    try
    {
        callBus("GetId", nullptr, "(s)", {at.context, at.ending, at.ending});
    }
    catch (const std::exception&)
    {
        // The bus is gone, and with it all that was under way.
    }
}

GHandle<GVariant> SecretConnection::encrypted(const SecretBytes& text) const
{
    // Without a destroy function the value borrows the memory, which stays ours to wipe.
    auto* const characters = const_cast<char*>(reinterpret_cast<const char*>(text.view().data()));
    const GHandle<SecretValue> value(
        library_.secret_value_new_full(characters, static_cast<gssize>(text.size()), "text/plain",
                                       nullptr),
        GRelease{&library_});
    GVariant* const secret =
        library_.secret_service_encode_dbus_secret(service_.get(), value.get());
    return {library_.g_variant_ref_sink(secret), GRelease{&library_}};
}

SecretBytes SecretConnection::decrypted(GVariant* secret) const
{
    const GHandle<SecretValue> value(
        library_.secret_service_decode_dbus_secret(service_.get(), secret), GRelease{&library_});
    if (!value)
        throw secretServiceFailures::nonsense("a secret that is not encrypted for the session");
    gsize size = 0;
    const char* const text = library_.secret_value_get(value.get(), &size);
    return SecretBytes(std::as_bytes(std::span(text, size)));
}

const char* SecretConnection::sessionPath() const
{
    return library_.secret_service_get_session_dbus_path(service_.get());
}

}  // namespace platform
