// The main thread of a GLib program. With GTK it is the same, around `g_application_run`.

#include <Adapters/GLib/GLibMainActor.hpp>
#include <Platform/Concurrency/Task.hpp>
#include <Platform/Services/Services.hpp>

#include <glib.h>

#include <iostream>

namespace
{

/// A coroutine of the host's own on its main thread, which is free while this waits.
platform::Awaitable<void> greet(platform::Services services)
{
    co_await services.clock->sleep(1'000'000);
    if (services.mainActor->isCurrent())
        std::cout << "Back on the main thread." << std::endl;
}

}  // namespace

int main()
{
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);

    auto services = platform::systemServices();
    services.mainActor = glib::mainActor();
    platform::replaceServices(services);

    platform::start<void>(platform::executorOf(services.mainActor), greet(services),
                          [loop](platform::Outcome<void>) { g_main_loop_quit(loop); });
    g_main_loop_run(loop);
    g_main_loop_unref(loop);
}
