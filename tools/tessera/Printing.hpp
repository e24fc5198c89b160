#pragma once

#include "tools/shared/Printing.hpp"
#include "tools/tessera/Actions.hpp"

namespace commandline
{

/// Everything that the program prints at its end, for people or, with `json`, for scripts. All
/// throw `Failure` when standard output takes no more.
void print(const Result& result, bool json);
void print(const Report& report, bool json);

/// What the layers below told of: a line each on standard error.
void print(const std::vector<platform::Diagnostic>& diagnostics);

}  // namespace commandline
