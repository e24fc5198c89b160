#pragma once

#include "tools/conformance/Runner.hpp"

#include <string>

namespace conformance
{

/// A line for each failure and each known disagreement, and the table; its last line has the
/// totals.
std::string asText(const Report& report);

/// The same as one JSON object.
std::string asJSON(const Report& report);

}  // namespace conformance
