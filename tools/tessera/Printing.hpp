#pragma once

#include "tools/tessera/Actions.hpp"
#include "tools/tessera/Failure.hpp"

namespace commandline
{

/// Everything that the program prints at its end, for people or, with `json`, for scripts. All
/// throw `Failure` when standard output takes no more.
void print(std::string_view text);
void print(const Result& result, bool json);
void print(const Report& report, bool json);

}  // namespace commandline
