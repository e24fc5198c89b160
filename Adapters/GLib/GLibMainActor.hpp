#pragma once

#include "Platform/Concurrency/MainActor.hpp"

#include <memory>

typedef struct _GMainContext GMainContext;

namespace glib
{

/// The calling thread as the main thread, which runs `context` or, without one, GLib's default
/// context, as GTK does:
///
///     services.mainActor = glib::mainActor();
///
/// Its `enqueue` and `enqueueAll` wake the context at most once. Each piece of work has an
/// iteration for itself, at default priority, so that a main loop inside one (a dialog) holds up
/// none of the others.
///
/// The actor keeps the context. Work waits while nobody runs the context, and is dropped with the
/// last reference to the actor, on any thread. A process that was forked must not use it. Work must
/// not throw; that stops the process.
std::shared_ptr<platform::MainActor> mainActor(GMainContext* context = nullptr);

}  // namespace glib
