#pragma once

#include "tests/simulation/Network.hpp"

#include <array>
#include <string>

namespace simulation
{

struct Answer
{
    int status = 200;
    std::string body = {};
    /// The session token that it hands out, or the information.
    const Text* text = nullptr;
};

/// What the server says when it issues the token or the information.
Answer answerOf(const Text& text);

/// What it says when it carries nothing out.
Answer refusal(int status, const std::string& code);

/// The account server as far as a session can tell: users, their sessions and what it knows of
/// them.
class AccountServer
{
public:
    /// Carries the request out.
    Answer carryOut(const Request& request);

    /// Begins a session, as a sign-in elsewhere would. Null once a user has had too many.
    const Text* beginSession(int user);

    bool isAlive(const Text& token) const;

    /// What it would say of the user of `token` to `client` now.
    const Text& infoFor(const Text& token, int client) const;

private:
    struct User
    {
        int begun = 0;
        std::array<bool, sessionCount> alive{};
        bool hasEmail = true;
        int revision = 0;
    };

    const User& userOf(const Text& token) const
    {
        return users_.at(static_cast<std::size_t>(token.user));
    }
    Answer signIn(const Request& request);

    std::array<User, userCount> users_{User{.hasEmail = false}, User{}, User{}};
};

}  // namespace simulation
