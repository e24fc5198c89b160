#pragma once

#include "tests/soak/Place.hpp"
#include "tests/soak/Report.hpp"

namespace soak
{

/// A process is stopped, not dead, in the middle of a write: the others must not wait longer than
/// promised, and must go on when it does, or when it is killed.
void meetStoppedHolder(const Place& place, Report& report);

}  // namespace soak
