#pragma once

#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/MainActor.hpp"
#include "Platform/Device/Device.hpp"
#include "Platform/Device/ResourceBundle.hpp"

#include <filesystem>
#include <memory>
#include <vector>

namespace platform
{

class URLSession;

/// The services of the machine, one of each. Objects take what they need in their constructor; what
/// has no constructor argument (a static accessor, a default, a localized text) reads the one
/// process-wide instance, `services()`.
///
/// A host replaces a field before it makes its first object of the framework, and tests replace all
/// of them. Copies share the services.
struct Services
{
    std::shared_ptr<Clock> clock;
    std::shared_ptr<Device> device;
    std::shared_ptr<URLSession> urlSession;

    /// Runs actors and timers, off the main thread.
    Executor background;

    /// The host's main thread. There is none until the host names it: `RunLoop` is one for programs
    /// that have no event loop of their own.
    std::shared_ptr<MainActor> mainActor;

    /// Where resource bundles are looked for, first folder first.
    std::vector<std::filesystem::path> resourceFolders;
};

/// The real services: libcurl, the machine's clock, one background thread. Built on first use and
/// kept until the process ends. libcurl's thread starts with the first transfer; both threads end
/// in an exit handler, before the libraries that they use clean up.
const Services& systemServices();

/// The process-wide services, `systemServices()` until they are replaced.
Services services();

/// Replaces the process-wide services, and returns the ones that were there. Objects that exist
/// keep what they were made with.
Services replaceServices(Services replacement);

}  // namespace platform
