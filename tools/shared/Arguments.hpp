#pragma once

#include <optional>
#include <string>

namespace CLI
{
class App;
}  // namespace CLI

namespace commandline
{

/// To be called first of all in `main`: what the caller did to the standard descriptors, and who
/// goes away at their other end, becomes an error that is seen.
void prepareStandardDescriptors();

/// Throws `Failure` of the class `usage`.
[[noreturn]] void refuse(std::string sentence, std::string next);

/// Reads the arguments into what the parser was told of. Returns the help or the version where they
/// are asked for, and nothing else is to be done then. Refuses what is wrong in the parser's words;
/// of what it did not expect, only the name of an option or of a command is repeated: the rest may
/// be a code or an address.
std::optional<std::string> parse(CLI::App& app, int count, const char* const* arguments);

/// Whether `--json` is among the arguments, for errors in the others.
bool wantsJSON(int count, const char* const* arguments);

}  // namespace commandline
