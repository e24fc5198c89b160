#include "Platform/Security/SecretService/CollectionUnlocking.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "Platform/Security/SecretService/SecretServiceNames.hpp"

#include <exception>
#include <utility>

namespace platform
{

using namespace secretServiceNames;

struct CollectionUnlocking::Waiting
{
    const SecretLibrary* library;
    bool isCompleted = false;
    bool isDismissed = false;
    bool isGone = false;
    bool isCancelled = false;

    static void completed(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                          GVariant* arguments, gpointer data)
    {
        auto& waiting = *static_cast<Waiting*>(data);
        // A service that says something else here has not said that the user agreed.
        waiting.isDismissed = true;
        if (waiting.library->g_variant_is_of_type(arguments, variantType("(bv)")))
        {
            const GHandle<GVariant> dismissed(
                waiting.library->g_variant_get_child_value(arguments, 0),
                GRelease{waiting.library});
            waiting.isDismissed = waiting.library->g_variant_get_boolean(dismissed.get());
        }
        waiting.isCompleted = true;
    }

    static void ownerChanged(GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar*, GVariant*, gpointer data)
    {
        static_cast<Waiting*>(data)->isGone = true;
    }

    static gboolean cancelled(GCancellable*, gpointer data)
    {
        static_cast<Waiting*>(data)->isCancelled = true;
        return FALSE;
    }
};

GHandle<GVariant> CollectionUnlocking::callService(const char* method, GVariant* arguments,
                                                   const char* answerType)
{
    const auto& library = connection_.library();
    auto answer = connection_.call({servicePath,
                                    serviceInterface,
                                    method,
                                    {library.g_variant_ref_sink(arguments), GRelease{&library}},
                                    answerType},
                                   at_);
    if (!answer)
        throw secretServiceFailures::nonsense(std::string("it does not know ") + method);
    return std::move(*answer);
}

bool CollectionUnlocking::hasCollection(const std::string& alias)
{
    const auto& library = connection_.library();
    const auto answer =
        callService("ReadAlias", library.g_variant_new("(s)", alias.c_str()), "(o)");
    const GHandle<GVariant> path(library.g_variant_get_child_value(answer.get(), 0),
                                 GRelease{&library});
    return std::string(library.g_variant_get_string(path.get(), nullptr)) != "/";
}

void CollectionUnlocking::run(const std::string& alias)
{
    const auto& library = connection_.library();
    if (!hasCollection(alias))
    {
        GVariantBuilder properties;
        library.g_variant_builder_init(&properties, variantType("a{sv}"));
        library.g_variant_builder_add(&properties, "{sv}",
                                      "org.freedesktop.Secret.Collection.Label",
                                      library.g_variant_new("s", "Default keyring"));
        const auto answer =
            callService("CreateCollection",
                        library.g_variant_new(
                            "(@a{sv}s)", library.g_variant_builder_end(&properties), alias.c_str()),
                        "(oo)");
        prompt(answer.get());
    }
    if (const auto locked = items_.lockedCollections(); !locked.empty())
    {
        const auto answer = callService(
            "Unlock", library.g_variant_new("(@ao)", items_.pathList(locked).get()), "(aoo)");
        prompt(answer.get());
    }
    if (!items_.lockedCollections().empty())
        throw secretServiceFailures::lockedCollection();
}

void CollectionUnlocking::prompt(GVariant* answer)
{
    const auto& library = connection_.library();
    const GHandle<GVariant> path(library.g_variant_get_child_value(answer, 1), GRelease{&library});
    const std::string text = library.g_variant_get_string(path.get(), nullptr);
    if (text != "/")
        prompt(text);
}

void CollectionUnlocking::prompt(const std::string& path)
{
    const auto& library = connection_.library();
    Waiting waiting{&library};
    waitForCompletion(path, waiting);
    if (waiting.isCompleted && !waiting.isDismissed)
        return;
    if (waiting.isCompleted || waiting.isCancelled)
        throw secretServiceFailures::notUnlocked();
    throw SecretServiceFailure(KeychainStatus::notAvailable,
                               "The Secret Service ended while the user was asked", "Try again");
}

void CollectionUnlocking::waitForCompletion(const std::string& path, Waiting& waiting)
{
    const auto& library = connection_.library();
    auto* const bus = connection_.bus();
    const char* const owner = connection_.owner().c_str();
    const guint completion = library.g_dbus_connection_signal_subscribe(
        bus, owner, promptInterface, "Completed", path.c_str(), nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        &Waiting::completed, &waiting, nullptr);
    const guint end = library.g_dbus_connection_signal_subscribe(
        bus, busName, busName, "NameOwnerChanged", busPath, owner, G_DBUS_SIGNAL_FLAGS_NONE,
        &Waiting::ownerChanged, &waiting, nullptr);
    GSource* const cancellation = library.g_cancellable_source_new(at_.cancellable);
    library.g_source_set_callback(cancellation, G_SOURCE_FUNC(&Waiting::cancelled), &waiting,
                                  nullptr);
    library.g_source_attach(cancellation, at_.context);

    std::exception_ptr failure;
    try
    {
        connection_.call(
            {path,
             promptInterface,
             "Prompt",
             {library.g_variant_ref_sink(library.g_variant_new("(s)", "")), GRelease{&library}},
             "()"},
            at_);
        while (!waiting.isCompleted && !waiting.isGone && !waiting.isCancelled &&
               !library.g_dbus_connection_is_closed(bus))
            library.g_main_context_iteration(at_.context, TRUE);
        // Nobody waits for the answer: the window is to close, whenever the service gets to it.
        if (waiting.isCancelled)
            library.g_dbus_connection_call(bus, owner, path.c_str(), promptInterface, "Dismiss",
                                           nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
                                           nullptr, nullptr);
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    library.g_source_destroy(cancellation);
    library.g_source_unref(cancellation);
    library.g_dbus_connection_signal_unsubscribe(bus, completion);
    library.g_dbus_connection_signal_unsubscribe(bus, end);
    if (failure)
        std::rethrow_exception(failure);
}

}  // namespace platform
