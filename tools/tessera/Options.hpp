#pragma once

#include "tools/tessera/Command.hpp"
#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <string>
#include <variant>

namespace commandline
{

/// What the command line asks for: a command, or to see the help or the version, which is the text.
/// Throws `Failure` of the class `usage`.
std::variant<Command, KeychainCommand, std::string> parseOptions(int count,
                                                                 const char* const* arguments);

}  // namespace commandline
