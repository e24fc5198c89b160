#include "Platform/Security/Authentication/UserConsent.hpp"

#include "Platform/Security/Authentication/AuthenticatorTurn.hpp"
#include "Platform/Security/Authentication/ItemEnvelope.hpp"
#include "Platform/Security/Authentication/PasscodeVault.hpp"

#include <algorithm>
#include <utility>

namespace platform
{

bool offers(const std::shared_ptr<Authenticator>& authenticator, AccessControlFlag demanded)
{
    const InsideAuthenticator inside;
    try
    {
        return authenticator && authenticator->offers(demanded);
    }
    catch (...)
    {
        return false;
    }
}

std::optional<std::string> enrolledFingerprints(const std::shared_ptr<Authenticator>& authenticator)
{
    const InsideAuthenticator inside;
    try
    {
        if (!authenticator)
            return std::nullopt;
        const auto set = authenticator->fingerprintSet();
        return set ? std::optional(ItemEnvelope::fingerprintsNamed(*set)) : std::nullopt;
    }
    catch (...)
    {
        return std::nullopt;
    }
}

KeychainStatus UserConsent::refuse(KeychainStatus status, std::string cause,
                                   std::string nextStep) const
{
    report(services_.diagnostics, "authentication", std::move(cause), std::move(nextStep));
    return status;
}

KeychainStatus UserConsent::get(Demand& demand, Agreement& agreement)
{
    if (const auto status = settled(demand, agreement))
        return *status;

    const auto limit = std::max(services_.answerLimit, std::chrono::nanoseconds(0));
    AuthenticatorTurn turn(services_.clock, static_cast<std::uint64_t>(limit.count()),
                           context_.ended.get_token());
    switch (turn.take())
    {
        case AuthenticatorTurn::Taken::contextEnded:
            return KeychainStatus::userCancelled;
        case AuthenticatorTurn::Taken::busy:
            return refuse(KeychainStatus::notAvailable,
                          "The authenticator has not returned from an earlier request.",
                          "Close its window; the host's authenticator must return when it is asked "
                          "to stop.");
        case AuthenticatorTurn::Taken::yes:
            break;
    }
    // Another read in this context may have asked while this one waited for its turn.
    if (const auto status = settled(demand, agreement))
        return *status;
    return ask(demand, turn, agreement);
}

std::optional<KeychainStatus> UserConsent::settled(Demand& demand, Agreement& agreement)
{
    if (context_.ended.stop_requested())
        return KeychainStatus::userCancelled;
    auto earlier = context_.agreement(demand.flag());
    if (!earlier && context_.barred())
        return KeychainStatus::interactionNotAllowed;
    if (const auto status = demand.prepare(); status != KeychainStatus::success)
        return status;
    if (earlier && demand.counts(*earlier))
    {
        agreement = std::move(*earlier);
        return KeychainStatus::success;
    }
    if (context_.barred())
        return KeychainStatus::interactionNotAllowed;
    if (!services_.clock || !offers(services_.authenticator, demand.flag()))
        return refuse(KeychainStatus::notAvailable,
                      "This program cannot ask the user for what the item demands.",
                      "Name a clock and an authenticator that offers it in the services.");
    const auto status = demand.mayAsk();
    return status == KeychainStatus::success ? std::nullopt : std::optional(status);
}

KeychainStatus UserConsent::ask(Demand& demand, AuthenticatorTurn& turn, Agreement& agreement)
{
    Authenticator::Request request;
    request.demanded = demand.flag();
    {
        const std::lock_guard lock(context_.mutex);
        request.reason = context_.reason;
    }
    Authenticator::Answer answer;
    switch (turn.ask(services_.authenticator, std::move(request), answer))
    {
        case AuthenticatorTurn::End::contextEnded:
            return KeychainStatus::userCancelled;
        case AuthenticatorTurn::End::timeUp:
            return refuse(KeychainStatus::userCancelled, "The user did not answer in time.",
                          "Read the item again when the user is there.");
        case AuthenticatorTurn::End::notStarted:
            return refuse(KeychainStatus::notAvailable,
                          "The system gave no thread for the request.",
                          "Try again when fewer programs run.");
        case AuthenticatorTurn::End::answered:
            break;
    }

    switch (answer.outcome)
    {
        case Authenticator::Outcome::confirmed:
            break;
        case Authenticator::Outcome::cancelled:
            return KeychainStatus::userCancelled;
        case Authenticator::Outcome::failed:
            return refuse(KeychainStatus::authenticationFailed,
                          "The authenticator reports that the user was not recognised.",
                          "Try again.");
        case Authenticator::Outcome::unavailable:
        default:
            return refuse(KeychainStatus::notAvailable,
                          "The authenticator reports that the user cannot be asked now.",
                          "See to the device or the window that asks.");
    }
    const auto status = demand.judge(answer.passcode, agreement);
    if (status != KeychainStatus::success)
        return status;
    return context_.remember(demand.flag(), agreement) ? KeychainStatus::success
                                                       : KeychainStatus::userCancelled;
}

}  // namespace platform
