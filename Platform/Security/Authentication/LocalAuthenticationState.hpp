#pragma once

#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Platform/Security/Authentication/PasscodeRecord.hpp"
#include "Platform/Security/Keychain/KeychainItem.hpp"

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>

namespace platform
{

/// What the user agreed to, and what must still be so for it to count again.
struct Agreement
{
    /// The set of fingerprints that was enrolled, for the demands that are about fingers.
    std::optional<std::string> fingerprints;
    /// For the passcode: the key that it opened.
    std::shared_ptr<const PasscodeKey> key;
};

/// What a context and the reads that use it share. `ended` is safe to use without the lock.
struct LocalAuthenticationContext::State
{
    std::mutex mutex;
    std::string reason;
    bool interactionNotAllowed = false;
    std::map<AccessControlFlag, Agreement> agreements;

    std::stop_source ended;

    /// False, and nothing is kept, when the context has ended meanwhile.
    bool remember(AccessControlFlag demanded, Agreement agreement);
    std::optional<Agreement> agreement(AccessControlFlag demanded);
    bool barred();
};

}  // namespace platform
