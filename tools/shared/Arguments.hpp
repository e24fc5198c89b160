#pragma once

#include <string>

namespace CLI
{
class App;
class ParseError;
}  // namespace CLI

namespace commandline
{

/// To be called first of all in `main`: what the caller did to the standard descriptors, and who
/// goes away at their other end, becomes an error that is seen.
void prepareStandardDescriptors();

/// Throws `Failure` of the class `usage`.
[[noreturn]] void refuse(std::string sentence, std::string next);

/// The same in the parser's words. Of what it did not expect, only an option's name is repeated:
/// the rest may be a code or an address.
[[noreturn]] void refuse(const CLI::ParseError& error, const CLI::App& app);

/// Whether `--json` is among the arguments, for errors in the others.
bool wantsJSON(int count, const char* const* arguments);

}  // namespace commandline
