#pragma once

#include <source_location>
#include <string_view>

namespace platform
{

/// Stops the process because of a programming error: prints the message and the place, then aborts.
/// The message must not hold a secret, for it ends in the program's error output.
[[noreturn]] void fatal(std::string_view message,
                        std::source_location place = std::source_location::current());

}  // namespace platform
