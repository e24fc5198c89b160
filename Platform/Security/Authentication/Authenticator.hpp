#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"

#include <optional>
#include <stop_token>
#include <string>

namespace platform
{

/// Asks the user, in the host's own windows. The host derives from it and names it in the services;
/// without one, nothing can be asked, and items that would need it are refused.
class Authenticator
{
public:
    /// What the user is asked for.
    struct Request
    {
        /// What the user must do: be present, show a finger, or enter the passcode.
        AccessControlFlag demanded = AccessControlFlag::none;
        /// Why, in the host's words; may be empty.
        std::string reason;
        /// Asked to stop when the context was invalidated or the time is up: close the window and
        /// return, the answer no longer counts. A callback on it runs on the thread of the read
        /// that asked, and returns at once.
        std::stop_token ended;
    };

    /// How the user answered.
    enum class Outcome
    {
        /// The user did what was demanded; for the passcode, `passcode` is what was entered.
        confirmed,
        cancelled,
        failed,
        unavailable,
    };

    /// The outcome, and the passcode where one was demanded.
    struct Answer
    {
        Outcome outcome = Outcome::unavailable;
        SecretString passcode;
    };

    virtual ~Authenticator() = default;

    /// Blocks until the user has answered. Runs on a thread of its own, one call at a time; it must
    /// not use a keychain or a store, which stops the process with a message that says so.
    ///
    /// All stores of the process wait meanwhile. If the window runs on the main thread, nothing on
    /// that thread may use a store until it has closed: both would wait until the time is up.
    virtual Answer authenticate(const Request& request) = 0;

    /// Whether the user can be asked to do this at all, without asking. Called from any thread.
    virtual bool offers(AccessControlFlag demanded) const = 0;

    /// The name of the set of fingerprints that is enrolled now, which changes when the set
    /// changes; nothing where there is no reader or no set. Called from any thread.
    virtual std::optional<std::string> fingerprintSet() const { return std::nullopt; }
};

}  // namespace platform
