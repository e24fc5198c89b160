#pragma once

#include "tools/fetch/Command.hpp"

#include <string>
#include <variant>

namespace fetch
{

/// What the command line asks for: a command, or to see the help or the version, which is the text.
/// Throws `commandline::Failure` of the class `usage`.
std::variant<Command, std::string> parseOptions(int count, const char* const* arguments);

}  // namespace fetch
