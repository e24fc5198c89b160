#pragma once

#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Session/AccountDiagnostic.hpp"
#include "Tessera/Session/AccountTransition.hpp"
#include "tools/shared/Interrupts.hpp"
#include "tools/tessera/Command.hpp"
#include "tools/tessera/Failure.hpp"

#include <optional>
#include <string>
#include <vector>

namespace commandline
{

/// What became of a sign-out on the server.
enum class ServerSignOut
{
    confirmed,
    /// It refused, or could not be reached.
    unconfirmed,
    noAnswer,
    /// The stored token was not one of this server's, which therefore never got it.
    notAsked,
    /// There was no session to end.
    notNeeded,
};

/// What a command brought about, for printing. What does not belong to the command is absent.
struct Result
{
    Verb verb;
    std::optional<tessera::AccountInfo> account = {};
    /// The terms that were accepted.
    std::optional<std::string> revision = {};
    std::optional<ServerSignOut> onServer = {};

    /// Where the session stands, and what is wrong with it.
    std::optional<tessera::AccountState> state = {};
    std::optional<tessera::AccountDiagnostic> diagnostic = {};
    std::optional<std::vector<tessera::AccountTransition>> history = {};

    /// What the layers below told of, though the command succeeded.
    std::vector<platform::Diagnostic> diagnostics = {};
};

/// Carries the command out, asking the person where it must. Throws what `reportOf` understands.
Result perform(const Command& command, Interrupts& interrupts);

}  // namespace commandline
