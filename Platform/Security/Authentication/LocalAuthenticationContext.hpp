#pragma once

#include <memory>
#include <string>

namespace platform
{

/// One conversation with the user about the release of items: the reason that is shown, whether the
/// user may be asked at all, and what the user has agreed to so far, so that a context that serves
/// several reads asks once. Any thread may use it.
class LocalAuthenticationContext
{
public:
    LocalAuthenticationContext();
    ~LocalAuthenticationContext();
    LocalAuthenticationContext(const LocalAuthenticationContext&) = delete;
    LocalAuthenticationContext& operator=(const LocalAuthenticationContext&) = delete;

    std::string localizedReason() const;
    void setLocalizedReason(std::string reason);

    /// False until it is set.
    bool interactionNotAllowed() const;
    void setInteractionNotAllowed(bool barred);

    /// Forgets what the user has agreed to and ends the context: a read that waits for the user in
    /// it ends with `userCancelled` now, and every later one at once.
    void invalidate();

    /// For keychains; defined in LocalAuthenticationState.hpp.
    struct State;
    const std::shared_ptr<State>& state() const noexcept { return state_; }

private:
    const std::shared_ptr<State> state_;
};

}  // namespace platform
