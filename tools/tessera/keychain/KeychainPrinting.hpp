#pragma once

#include "tools/tessera/keychain/KeychainActions.hpp"

namespace commandline
{

/// What a command of the keychain prints at its end; `diagnostics` is what was reported on the way
/// to a success. Throws `Failure` when standard output takes no more.
void print(const KeychainResult& result, const std::vector<platform::Diagnostic>& diagnostics,
           bool json);

}  // namespace commandline
