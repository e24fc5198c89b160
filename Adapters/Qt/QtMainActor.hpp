#pragma once

#include "Platform/Concurrency/MainActor.hpp"

#include <memory>

namespace qt
{

/// The thread of the program's QCoreApplication (or QGuiApplication, QApplication) as the main
/// thread:
///
///     QApplication application(argc, argv);
///     services.mainActor = qt::mainActor();
///
/// To be called on that thread while the application exists; anything else is a programming error
/// that stops the process. Every call for one application returns the same actor. Its `enqueue` and
/// `enqueueAll` wake the event loop at most once, and each piece of work has a turn of the loop for
/// itself, so that a dialog which one opens holds up none of the others.
///
/// Work waits while no event loop runs, and is dropped by the destructor of the application. The
/// actor may outlive the application: what is enqueued then is dropped at once, by the thread that
/// enqueued it. Work must not throw; that stops the process.
std::shared_ptr<platform::MainActor> mainActor();

}  // namespace qt
