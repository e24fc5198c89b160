#pragma once

#include "Platform/Networking/URLResponse.hpp"
#include "Platform/Security/SecretBytes.hpp"
#include "tools/fetch/Command.hpp"
#include "tools/shared/Interrupts.hpp"

#include <cstdint>

namespace fetch
{

/// What came in the end.
struct Answer
{
    platform::SecretBytes body;
    platform::URLResponse response;
    /// Bytes of the file that the last attempt sent.
    std::int64_t sent = 0;
    int attempts = 1;
};

/// Runs the transfer of a command, shows its progress, and returns the answer if its status is
/// accepted. Ctrl-C cancels it: `platform::CancellationError`. Throws `commandline::Failure` for
/// files that cannot be read and for a refusal, and what `nettasks` throws.
Answer transfer(const Command& command, commandline::Interrupts& interrupts);

}  // namespace fetch
