#pragma once

#include "Tessera/Model/AccountInfo.hpp"
#include "tools/tessera/Command.hpp"
#include "tools/tessera/Interrupts.hpp"

#include <filesystem>
#include <optional>
#include <string>

namespace commandline
{

/// What a command brought about, for printing. What does not belong to the command is absent.
struct Result
{
    Verb verb;
    std::optional<tessera::AccountInfo> account = {};
    /// The terms that were accepted.
    std::optional<std::string> revision = {};
    /// Where the token was written, or whence it was removed.
    std::filesystem::path tokenFile = {};
    /// The server had ended the session before it was asked to.
    bool alreadyEnded = false;
};

/// Carries the command out, asking the person where it must. Throws what `reportOf` understands.
Result perform(const Command& command, Interrupts& interrupts);

}  // namespace commandline
