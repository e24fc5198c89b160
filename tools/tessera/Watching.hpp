#pragma once

#include "tools/tessera/Host.hpp"

namespace commandline
{

/// Prints a line for each state that the account publishes, and for each problem that it notices,
/// until a signal comes. Throws `Failure` when the keychain cannot be read at the start, and when
/// the output takes no more.
void watch(Host& host, bool json);

}  // namespace commandline
