#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "tools/tessera/Interrupts.hpp"

#include <cstddef>
#include <string_view>

namespace commandline
{

/// Asks at the terminal and reads one line, which is not shown while it is typed. The terminal is
/// as before when this returns or throws: `platform::CancellationError` after Ctrl-C, and `Failure`
/// when the input ends instead.
platform::SecretString askSecretly(std::string_view question, const Interrupts& interrupts);

/// The same, shown while it is typed.
platform::SecretString ask(std::string_view question, const Interrupts& interrupts);

/// A token from standard input, as far as its end. Throws `Failure` when a person would have to
/// type it, or when there is none.
platform::SecretString readTokenFromInput(const Interrupts& interrupts);

/// The token in what was read, without white space around it. Throws `Failure` when nothing is
/// left, or when what is left has control characters or blanks in it.
platform::SecretString tokenIn(std::string_view text, std::string_view source);

/// Longer than any token that a header may carry.
constexpr std::size_t tokenSizeLimit = std::size_t{64} * 1024;

}  // namespace commandline
