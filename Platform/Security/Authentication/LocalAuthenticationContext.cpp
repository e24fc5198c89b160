#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"

#include "Platform/Security/Authentication/LocalAuthenticationState.hpp"

#include <utility>

namespace platform
{

bool LocalAuthenticationContext::State::remember(AccessControlFlag demanded, Agreement agreement)
{
    const std::lock_guard lock(mutex);
    if (ended.stop_requested())
        return false;
    agreements.insert_or_assign(demanded, std::move(agreement));
    return true;
}

std::optional<Agreement> LocalAuthenticationContext::State::agreement(AccessControlFlag demanded)
{
    const std::lock_guard lock(mutex);
    const auto found = agreements.find(demanded);
    return found == agreements.end() ? std::nullopt : std::optional(found->second);
}

bool LocalAuthenticationContext::State::barred()
{
    const std::lock_guard lock(mutex);
    return interactionNotAllowed;
}

LocalAuthenticationContext::LocalAuthenticationContext() : state_(std::make_shared<State>()) {}

LocalAuthenticationContext::~LocalAuthenticationContext() = default;

std::string LocalAuthenticationContext::localizedReason() const
{
    const std::lock_guard lock(state_->mutex);
    return state_->reason;
}

void LocalAuthenticationContext::setLocalizedReason(std::string reason)
{
    const std::lock_guard lock(state_->mutex);
    state_->reason = std::move(reason);
}

bool LocalAuthenticationContext::interactionNotAllowed() const
{
    return state_->barred();
}

void LocalAuthenticationContext::setInteractionNotAllowed(bool barred)
{
    const std::lock_guard lock(state_->mutex);
    state_->interactionNotAllowed = barred;
}

void LocalAuthenticationContext::invalidate()
{
    // Ended first: what a read is about to remember is refused from here on.
    state_->ended.request_stop();
    const std::lock_guard lock(state_->mutex);
    state_->agreements.clear();
}

}  // namespace platform
