#pragma once

#include <functional>
#include <thread>

namespace platform
{

/// Starts a thread of the library's own. It is named for debuggers (15 characters at most), and all
/// signals are blocked in it, so that a host's signal handlers run on the host's threads.
std::thread startThread(const char* name, std::function<void()> body);

}  // namespace platform
