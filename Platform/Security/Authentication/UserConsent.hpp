#pragma once

#include "Platform/Security/Authentication/ItemProtection.hpp"
#include "Platform/Security/Authentication/LocalAuthenticationState.hpp"

#include <memory>
#include <optional>
#include <string>

namespace platform
{

/// One thing that an item demands of the user, and when it is met.
class Demand
{
public:
    explicit Demand(AccessControlFlag flag) : flag_(flag) {}
    virtual ~Demand() = default;
    AccessControlFlag flag() const noexcept { return flag_; }

    /// Looks at what all that follows depends on; has explained itself where it refuses.
    virtual KeychainStatus prepare() = 0;

    /// Whether what the user agreed to earlier still counts.
    virtual bool counts(const Agreement& earlier) = 0;

    /// Whether there is a use in asking; has explained itself where there is none.
    virtual KeychainStatus mayAsk() = 0;

    /// Looks at what the user did, who confirmed. A refusal has been explained.
    virtual KeychainStatus judge(const SecretString& passcode, Agreement& agreement) = 0;

private:
    const AccessControlFlag flag_;
};

/// Gets the user's consent for one read: from what the context remembers, or by asking.
class UserConsent
{
public:
    UserConsent(LocalAuthenticationContext::State& context, const ProtectionServices& services)
        : context_(context), services_(services)
    {}

    /// Success, and what the user agreed to; or a status that has been explained where it is a
    /// fault, and not the user's or the context's answer.
    KeychainStatus get(Demand& demand, Agreement& agreement);

private:
    std::optional<KeychainStatus> settled(Demand& demand, Agreement& agreement);
    KeychainStatus ask(Demand& demand, class AuthenticatorTurn& turn, Agreement& agreement);
    KeychainStatus refuse(KeychainStatus status, std::string cause, std::string nextStep) const;

    LocalAuthenticationContext::State& context_;
    const ProtectionServices& services_;
};

/// Whether the user can be asked for this; false where the host's own code throws.
bool offers(const std::shared_ptr<Authenticator>& authenticator, AccessControlFlag demanded);

/// The short name of the set that is enrolled now.
std::optional<std::string> enrolledFingerprints(
    const std::shared_ptr<Authenticator>& authenticator);

}  // namespace platform
