#pragma once

#include <span>
#include <string_view>

namespace conformance
{

/// A case where the product goes its own way for a reason. It is reported as known, not as failed;
/// as soon as it passes, the entry is wrong and the case fails.
struct KnownDisagreement
{
    std::string_view file;
    /// The case by the name that the report shows.
    std::string_view name;
    std::string_view reason;
};

std::span<const KnownDisagreement> knownDisagreements();

}  // namespace conformance
