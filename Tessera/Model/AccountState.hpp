#pragma once

#include "Tessera/Model/AccountProfile.hpp"

#include <variant>

namespace tessera
{

/// Where a session stands. An immutable value: compared and hashed by what it holds, and safe to
/// hand to other threads.
///
///     if (const auto* profile = state.get<AccountProfile>()) ...
class AccountState
{
public:
    /// The stored session has not been read yet, or could not be.
    struct Loading
    {
        bool operator==(const Loading&) const = default;
    };
    /// The stored session could not be read by a refresh; the sentence says why.
    struct Failed
    {
        std::string errorMessage;
        bool operator==(const Failed&) const = default;
    };
    /// There is no session.
    struct SignedOut
    {
        bool operator==(const SignedOut&) const = default;
    };
    using Value = std::variant<Loading, Failed, AccountPendingProfile, AccountProfile, SignedOut>;

    static AccountState loading() { return AccountState(Loading()); }
    static AccountState failed(std::string errorMessage)
    {
        return AccountState(Failed{std::move(errorMessage)});
    }
    static AccountState pending(AccountPendingProfile profile)
    {
        return AccountState(std::move(profile));
    }
    static AccountState signedIn(AccountProfile profile)
    {
        return AccountState(std::move(profile));
    }
    static AccountState signedOut() { return AccountState(SignedOut()); }

    const Value& value() const noexcept { return value_; }

    /// What one of the cases holds; null in every other case.
    template <class Case>
    const Case* get() const noexcept
    {
        return std::get_if<Case>(&value_);
    }

    /// The session token of `pending` and `signedIn`.
    std::optional<platform::SecretString> token() const;

    /// The user of `signedIn` as the account information names it; the token's own is not asked.
    std::optional<boost::uuids::uuid> uuid() const;

    bool operator==(const AccountState&) const = default;
    friend std::size_t hash_value(const AccountState& state);

private:
    explicit AccountState(Value value) : value_(std::move(value)) {}

    Value value_;
};

}  // namespace tessera
