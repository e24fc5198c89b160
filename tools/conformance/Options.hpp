#pragma once

#include "tools/conformance/Runner.hpp"

#include <variant>

namespace conformance
{

/// The program is done; this is its exit code.
struct Done
{
    int exitCode;
};

/// What the command line asks for. Prints the help, and what is wrong with the options.
std::variant<Settings, Done> parseOptions(int count, const char* const* arguments);

}  // namespace conformance
