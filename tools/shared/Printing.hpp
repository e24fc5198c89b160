#pragma once

#include "Platform/Coding/JSONWriter.hpp"
#include "tools/shared/Failure.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace commandline
{

/// What all programs print alike. What goes to standard output throws `Failure` when that takes no
/// more.
void print(std::string_view text);

/// A failure: the sentence and the next step on standard error, "tessera: It failed. Try again.";
/// with `json` one object on standard output.
void print(std::string_view program, const Report& report, bool json);

/// Prints the failure, and returns the exit code. It does not throw: an output that takes no more
/// is told on standard error.
int fail(std::string_view program, const Report& report, bool json);

/// The same as the member "error" of an object.
void writeError(const Report& report, platform::JSONWriter& json);

/// The same JSON without the control characters that JSON lets pass, U+007F to U+009F: it may go
/// to a terminal.
std::string harmlessJSON(std::string_view json);

/// What the layers below told of: a line each on standard error.
void print(std::string_view program, const std::vector<platform::Diagnostic>& diagnostics);
/// The same as a member of an object.
void writeDiagnostics(const std::vector<platform::Diagnostic>& diagnostics,
                      platform::JSONWriter& json);

}  // namespace commandline
