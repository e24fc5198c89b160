#pragma once

#include "Tessera/Model/AccountState.hpp"
#include "Tessera/Session/AccountTransition.hpp"
#include "tools/shared/Terminal.hpp"

#include <string>

namespace commandline
{

tessera::AccountStateKind kindOf(const tessera::AccountState& state);

/// A state in two or three words: "signed in".
std::string words(tessera::AccountStateKind kind);
Style styleOf(tessera::AccountStateKind kind);

/// Why a state was reached, as a sentence.
std::string sentence(tessera::AccountTransitionCause cause);

}  // namespace commandline
