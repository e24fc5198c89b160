#pragma once

#include "Platform/Security/Authentication/Authenticator.hpp"
#include "Platform/Security/Authentication/Waiter.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

namespace platform
{

/// The right to ask the user, which one thread of the process has at a time, and the thread on
/// which the authenticator then runs. Every wait ends when the context does, and when the time is
/// up. An authenticator that does not return is left to itself, and nobody else is asked until it
/// does.
class AuthenticatorTurn
{
public:
    AuthenticatorTurn(std::shared_ptr<Clock> clock, std::uint64_t limitNanoseconds,
                      std::stop_token ended);
    ~AuthenticatorTurn();
    AuthenticatorTurn(const AuthenticatorTurn&) = delete;
    AuthenticatorTurn& operator=(const AuthenticatorTurn&) = delete;

    enum class Taken
    {
        yes,
        contextEnded,
        /// Another question stands open, for too long already or for as long as this wait.
        busy,
    };
    Taken take();

    enum class End
    {
        answered,
        contextEnded,
        timeUp,
        /// The system gave no thread.
        notStarted,
    };
    /// Asks once; `take` must have said yes. `answer` is filled when the end is `answered`.
    End ask(std::shared_ptr<Authenticator> authenticator, Authenticator::Request request,
            Authenticator::Answer& answer);

private:
    struct Question;

    void abandon(Question& question, bool overdue);

    const std::shared_ptr<Clock> clock_;
    const std::uint64_t limitNanoseconds_;
    const std::stop_token ended_;
    const std::shared_ptr<Waiter> waiter_ = std::make_shared<Waiter>();
    bool taken_ = false;
};

/// While one lives, this thread counts as one that runs an authenticator: around every call into
/// what the host wrote.
class InsideAuthenticator
{
public:
    InsideAuthenticator() noexcept;
    ~InsideAuthenticator();
    InsideAuthenticator(const InsideAuthenticator&) = delete;
    InsideAuthenticator& operator=(const InsideAuthenticator&) = delete;

private:
    const bool before_;
};

}  // namespace platform
