#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "tools/shared/Interrupts.hpp"

#include <cstddef>
#include <optional>
#include <stop_token>
#include <string_view>

namespace commandline
{

/// Asks at the terminal and reads one line, which is not shown while it is typed. The terminal is
/// as before when this returns or throws: `platform::CancellationError` after Ctrl-C, and `Failure`
/// when the input ends instead.
/// `ended` takes the question back, as Ctrl-C does.
platform::SecretString askSecretly(std::string_view question, const Interrupts& interrupts,
                                   const std::stop_token& ended = {});

/// The same, shown while it is typed.
platform::SecretString ask(std::string_view question, const Interrupts& interrupts,
                           const std::stop_token& ended = {});

/// One line from a descriptor, and not a byte behind it, so that what follows is left to others.
/// Nothing at the end of the input.
std::optional<platform::SecretString> readLineFrom(int descriptor, const Interrupts& interrupts);

/// Standard input as far as its end, or a little more than `limit` bytes of it.
platform::SecretString readInput(std::size_t limit, const Interrupts& interrupts);

}  // namespace commandline
