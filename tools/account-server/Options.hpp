#pragma once

#include "tools/account-server/Settings.hpp"

#include <filesystem>
#include <string>
#include <variant>

namespace accountserver
{

struct ReadMailbox
{
    std::filesystem::path state;
    std::string email;
};

/// The program is done; this is its exit code.
struct Done
{
    int exitCode;
};

/// What the command line asks for. Prints the help, and what is wrong with the options.
std::variant<Settings, ReadMailbox, Done> parseOptions(int count, const char* const* arguments);

}  // namespace accountserver
