#pragma once

#include "tools/fetch/Command.hpp"
#include "tools/fetch/Transfer.hpp"
#include "tools/shared/Failure.hpp"
#include "tools/shared/Interrupts.hpp"

#include <cstdint>
#include <optional>

namespace fetch
{

/// The answer's body on standard output, byte for byte; a terminal gets no control characters, and
/// no body that is no text. Throws `commandline::Failure`, and `platform::CancellationError` after
/// a signal.
void printBody(const platform::SecretBytes& body, const commandline::Interrupts& interrupts);

/// What was done, beside the answer.
struct Done
{
    /// Of the file that was sent.
    std::int64_t size = 0;
    bool deleted = false;
    /// Why it stays although it was to be removed.
    std::optional<commandline::Report> kept = {};
};

/// What was done, as JSON on standard output; with the body unless that went to a file.
void printJSON(const Command& command, const Answer& answer, const Done& done);

/// What was done, as sentences on standard error. A quiet command still tells of a file that was
/// not sent whole.
void printSummary(const Command& command, const Answer& answer, const Done& done);

}  // namespace fetch
