#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Security/Keychain/KeychainStatus.hpp"

#include <exception>
#include <string>
#include <utility>

namespace platform
{

/// Why an operation on the Secret Service ended, on its way up to where it becomes a status and a
/// diagnostic. It never leaves the store.
class SecretServiceFailure final : public std::exception
{
public:
    enum class Kind
    {
        final_,
        /// The service, its session or the bus was gone before anything was done: worth another
        /// try.
        gone,
        /// The same, but the service had the call already: another try is right for a read alone.
        answerLost,
        /// The object is not there any more; another process was quicker.
        vanished,
        /// The caller's time is up or the store is being shut down.
        cancelled,
    };

    SecretServiceFailure(KeychainStatus status, std::string cause, std::string nextStep,
                         Kind kind = Kind::final_)
        : status_(status),
          kind_(kind),
          diagnostic_{"secret service", std::move(cause), std::move(nextStep)}
    {}

    KeychainStatus status() const noexcept { return status_; }
    Kind kind() const noexcept { return kind_; }
    const Diagnostic& diagnostic() const noexcept { return diagnostic_; }
    const char* what() const noexcept override { return diagnostic_.cause.c_str(); }

private:
    KeychainStatus status_;
    Kind kind_;
    Diagnostic diagnostic_;
};

/// The failures that are raised in several places, each with its one text.
namespace secretServiceFailures
{

inline SecretServiceFailure nonsense(const std::string& what)
{
    return {KeychainStatus::damaged, "The Secret Service answered nonsense: " + what,
            "Look at the item with the desktop's keyring program, and remove it if it is damaged"};
}

inline SecretServiceFailure lockedItem()
{
    return {KeychainStatus::interactionNotAllowed,
            "The item lies in a collection of the Secret Service that is locked",
            "Unlock it with: tessera keychain unlock"};
}

inline SecretServiceFailure lockedCollection()
{
    return {KeychainStatus::notAvailable,
            "A collection of the Secret Service that could hold the item is locked",
            "Unlock it with: tessera keychain unlock"};
}

inline SecretServiceFailure noCollection()
{
    return {KeychainStatus::notAvailable, "The Secret Service has no default collection",
            "Have it made with: tessera keychain unlock"};
}

inline SecretServiceFailure notUnlocked()
{
    return {KeychainStatus::userCancelled, "Unlocking the Secret Service was not confirmed in time",
            "Run it again in a desktop session, and answer the keyring's question"};
}

inline SecretServiceFailure timeLimit()
{
    return {KeychainStatus::notAvailable,
            "The Secret Service did not answer in time; whether a change took place is not known",
            "See whether the keyring's daemon hangs, restart it, and try again",
            SecretServiceFailure::Kind::cancelled};
}

inline SecretServiceFailure forked()
{
    return {KeychainStatus::notAvailable,
            "The process was forked while the Secret Service was in use",
            "Use the keychain in the parent, or start a program of its own"};
}

inline SecretServiceFailure shutDown()
{
    return {KeychainStatus::notAvailable, "The connection to the Secret Service was shut down",
            "Use the keychain before the program's end", SecretServiceFailure::Kind::cancelled};
}

}  // namespace secretServiceFailures

}  // namespace platform
