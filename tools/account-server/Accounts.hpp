#pragma once

#include "tools/account-server/ServerClock.hpp"
#include "tools/account-server/Store.hpp"
#include "tools/account-server/Tokens.hpp"

#include <chrono>
#include <optional>
#include <string>

namespace accountserver
{

/// A one-time code on its way to its owner.
struct Mail
{
    std::string email;
    std::string code;
    std::chrono::seconds validFor{0};
};

struct SignedIn
{
    Session session;
    std::string token;
};

/// The rules of the account service: what each operation does, and when it is refused.
///
/// It knows neither HTTP nor JSON. `docs/account-server.md` has the table of the refusals. Used on
/// one thread. Throws `Refusal`; what `Store` throws passes through.
class Accounts
{
public:
    struct Rules
    {
        std::chrono::seconds codeLifetime;
        int codesPerHour;
        int codeTries;
        std::chrono::seconds reauthenticateAfter;
    };

    Accounts(Store& store, Tokens& tokens, const ServerClock& clock, Rules rules)
        : store_(store), tokens_(tokens), clock_(clock), rules_(rules)
    {}

    /// The session that the token belongs to.
    Session session(const std::string& token) const;

    /// The mail to send. Whether the address has an account plays no part in it.
    Mail requestCode(const std::string& email);

    /// Redeems the code. With the session of an anonymous account the address is given to that
    /// account; with the session of an account that has the address already, it signs in anew.
    SignedIn signIn(const std::string& email, const std::string& code,
                    const std::optional<Session>& current);
    SignedIn signInAnonymously();

    std::string info(const Session& session, const std::string& audience, TokenFault fault);
    void signOut(const Session& session);
    void deleteAccount(const Session& session);
    void subscribe(const Session& session);
    void consent(const Session& session, const std::string& revision, const std::string& language);

    /// False when the revision was published before.
    bool publishTerms(const std::string& revision);

private:
    void checkCode(const std::string& address, const std::string& code);
    Account accountFor(const std::string& email, const std::optional<Session>& current);
    SignedIn open(const Account& account);

    Store& store_;
    Tokens& tokens_;
    const ServerClock& clock_;
    Rules rules_;
};

}  // namespace accountserver
