#pragma once

#include "Platform/Basics/Date.hpp"

#include <variant>

namespace tessera
{

/// How the last refresh of the account information went. The dates are the moments of its end.
class AccountRefreshStatus
{
public:
    struct Completed
    {
        platform::Date at;
        bool operator==(const Completed&) const = default;
    };
    struct Failed
    {
        platform::Date at;
        bool operator==(const Failed&) const = default;
    };
    /// Nothing was refreshed yet.
    struct Pending
    {
        bool operator==(const Pending&) const = default;
    };
    struct Refreshing
    {
        bool operator==(const Refreshing&) const = default;
    };

    static AccountRefreshStatus completed(platform::Date at) { return {Completed{at}}; }
    static AccountRefreshStatus failed(platform::Date at) { return {Failed{at}}; }
    static AccountRefreshStatus pending() { return {Pending{}}; }
    static AccountRefreshStatus refreshing() { return {Refreshing{}}; }

    template <class Case>
    const Case* get() const noexcept
    {
        return std::get_if<Case>(&value_);
    }
    template <class Case>
    bool is() const noexcept
    {
        return get<Case>() != nullptr;
    }

    bool operator==(const AccountRefreshStatus&) const = default;

private:
    using Value = std::variant<Completed, Failed, Pending, Refreshing>;

    AccountRefreshStatus(Value value) : value_(value) {}

    Value value_;
};

}  // namespace tessera
