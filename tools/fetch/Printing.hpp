#pragma once

#include "tools/fetch/Command.hpp"
#include "tools/fetch/Transfer.hpp"
#include "tools/shared/Interrupts.hpp"

namespace fetch
{

/// The answer's body on standard output, byte for byte; a terminal gets no control characters, and
/// no body that is no text. Throws `commandline::Failure`, and `platform::CancellationError` after
/// a signal.
void printBody(const platform::SecretBytes& body, const commandline::Interrupts& interrupts);

/// What was done, as JSON on standard output; with the body unless that went to a file.
void printJSON(const Command& command, const Answer& answer);

/// What was done, as a sentence on standard error.
void printSummary(const Command& command, const Answer& answer);

}  // namespace fetch
