#pragma once

#include <functional>
#include <string>

namespace platform
{

/// What went wrong below an error that has no room for it, for the host's log: the cause, and what
/// the user or the host can do about it. It holds no secret: no key, no value, no address.
struct Diagnostic
{
    /// Who reports: "keychain", "secret service", "passcode".
    std::string area;
    std::string cause;
    std::string nextStep;

    bool operator==(const Diagnostic&) const = default;
};

/// Takes diagnostics, from any thread, before the status that they explain is returned. It must
/// return soon, must not throw, and must not use a store: the caller holds the store's locks.
using DiagnosticSink = std::function<void(const Diagnostic&)>;

}  // namespace platform
