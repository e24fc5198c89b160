#pragma once

#include "Platform/Coding/JSONWriter.hpp"
#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Session/AccountDiagnostic.hpp"
#include "Tessera/Session/AccountTransition.hpp"

#include <optional>
#include <string>
#include <vector>

namespace commandline
{

// What an account and its session look like: as tables and lines for people, and as members of an
// object for scripts. People read local time, scripts UTC.

platform::SecretString accountTable(const tessera::AccountInfo& account, bool colours);
platform::SecretString statusTable(const tessera::AccountState& state,
                                   const std::optional<tessera::AccountDiagnostic>& problem,
                                   bool colours);
std::string historyTable(const std::vector<tessera::AccountTransition>& history, bool colours);

/// One line of `watch`, with its end.
platform::SecretString watchLine(platform::Date time, const tessera::AccountState& state,
                                 bool json);
platform::SecretString watchLine(platform::Date time, const tessera::AccountDiagnostic& problem,
                                 bool json);

void writeAccount(const tessera::AccountInfo& account, platform::JSONWriter& json);
/// The members "state", "source", "message" and "account", as far as the state has them.
void writeState(const tessera::AccountState& state, platform::JSONWriter& json);
/// The member "problem".
void writeProblem(const tessera::AccountDiagnostic& problem, platform::JSONWriter& json);
/// The member "history".
void writeHistory(const std::vector<tessera::AccountTransition>& history,
                  platform::JSONWriter& json);

}  // namespace commandline
