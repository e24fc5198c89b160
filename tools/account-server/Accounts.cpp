#include "tools/account-server/Accounts.hpp"

#include "tools/account-server/Random.hpp"
#include "tools/account-server/Refusal.hpp"

#include <openssl/crypto.h>

#include <algorithm>
#include <cctype>
#include <cmath>

namespace accountserver
{
namespace
{

constexpr double hour = 3600;

/// Only what would harm a mail's header or envelope is refused; the rest is the mail server's call.
void checkEmail(const std::string& email)
{
    const auto at = email.rfind('@');
    const bool shaped = at != std::string::npos && at > 0 && at + 1 < email.size();
    const auto harmful = [](unsigned char c)
    { return c <= 0x20 || c == 0x7F || c == '<' || c == '>' || c == ',' || c == ';'; };
    if (!shaped || email.size() > 254 || std::any_of(email.begin(), email.end(), harmful))
        throw Refusal(400, "invalid_email", "This is not an e-mail address.");
}

bool isLanguageTag(const std::string& text)
{
    const auto fits = [](unsigned char c) { return c == '-' || std::isalnum(c); };
    return !text.empty() && text.size() <= 35 && std::all_of(text.begin(), text.end(), fits);
}

bool equal(const std::string& left, const std::string& right)
{
    return left.size() == right.size() &&
           CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace

Session Accounts::session(const std::string& token) const
{
    auto session = store_.sessionWithToken(digestOf(token));
    if (!session)
        throw Refusal(401, "unauthorized", "The session has ended. Sign in again.");
    return *std::move(session);
}

Mail Accounts::requestCode(const std::string& email)
{
    checkEmail(email);
    const auto address = comparable(email);
    const double now = clock_.now();
    Store::Transaction transaction(store_);
    const auto mails = store_.mails(address, now - hour, now);
    if (rules_.codesPerHour > 0 && mails.count >= rules_.codesPerHour)
    {
        Refusal refusal(429, "too_many_codes", "Too many codes were asked for. Try again later.");
        const auto wait = std::max(1L, std::lround(std::ceil(mails.oldest + hour - now)));
        refusal.headers.emplace_back("Retry-After", std::to_string(wait));
        throw refusal;
    }
    Mail mail{email, randomCode(), rules_.codeLifetime};
    const auto lifetime = static_cast<double>(rules_.codeLifetime.count());
    store_.putCode({address, mail.code, now + lifetime, 0});
    store_.noteMail(address, now);
    transaction.commit();
    return mail;
}

SignedIn Accounts::signIn(const std::string& email, const std::string& code,
                          const std::optional<Session>& current)
{
    checkEmail(email);
    const auto address = comparable(email);
    checkCode(address, code);

    Store::Transaction transaction(store_);
    auto signedIn = open(accountFor(email, current));
    store_.removeCode(address);
    transaction.commit();
    return signedIn;
}

SignedIn Accounts::signInAnonymously()
{
    Store::Transaction transaction(store_);
    auto signedIn = open(store_.createAccount(std::nullopt, clock_.now()));
    transaction.commit();
    return signedIn;
}

void Accounts::checkCode(const std::string& address, const std::string& code)
{
    const auto sent = store_.code(address);
    if (sent && sent->wrongTries >= rules_.codeTries)
        throw Refusal(429, "too_many_tries",
                      "The code was entered wrongly too often. Ask for a new one.");
    if (!sent || !equal(sent->digits, code))
    {
        store_.countWrongTry(address);
        throw Refusal(403, "invalid_code", "The code is not right. Check it or ask for a new one.");
    }
    if (clock_.now() >= sent->expires)
        throw Refusal(403, "expired_code", "The code has expired. Ask for a new one.");
}

Account Accounts::accountFor(const std::string& email, const std::optional<Session>& current)
{
    // A refusal leaves the code valid: without the bearer token it still signs in.
    auto owner = store_.accountWithAddress(comparable(email));
    if (!current)
        return owner ? *std::move(owner) : store_.createAccount(email, clock_.now());
    auto account = current->account;
    if (owner && owner->id == account.id)
        return account;
    if (account.email)
        throw Refusal(409, "already_signed_in",
                      "This session belongs to another address. Sign out first.");
    if (owner)
        throw Refusal(409, "email_in_use",
                      "The address belongs to another account. Sign out first, then sign in.");
    store_.setEmail(account.id, email);
    account.email = email;
    return account;
}

SignedIn Accounts::open(const Account& account)
{
    // The session that an anonymous account had stays: an answer that is lost on the way must not
    // cost the user the account.
    SignedIn signedIn{{randomText(), account, clock_.now()}, {}};
    signedIn.token = tokens_.session(account, signedIn.session.id);
    store_.addSession(signedIn.session, digestOf(signedIn.token));
    return signedIn;
}

std::string Accounts::info(const Session& session, const std::string& audience, TokenFault fault)
{
    return tokens_.info(session.account, store_.currentTerms(), audience, fault);
}

void Accounts::signOut(const Session& session)
{
    store_.removeSession(session.id);
}

void Accounts::deleteAccount(const Session& session)
{
    // An anonymous account has no address to prove, so it could never get past this.
    const auto limit = static_cast<double>(rules_.reauthenticateAfter.count());
    if (limit > 0 && session.account.email && clock_.now() - session.signedInAt > limit)
        throw Refusal(403, "reauthentication_required",
                      "The sign-in is too long ago. Sign in again to delete the account.");
    store_.removeAccount(session.account.id);
}

void Accounts::subscribe(const Session& session)
{
    if (!session.account.email)
        throw Refusal(409, "email_required", "The account has no e-mail address. Sign in first.");
    if (session.account.acceptedRevision != store_.currentTerms())
        throw Refusal(403, "no_consent", "Accept the current terms first.");
    store_.subscribe(session.account.id, clock_.now());
}

void Accounts::consent(const Session& session, const std::string& revision,
                       const std::string& language)
{
    if (!isLanguageTag(language))
        throw Refusal(400, "invalid_language", "This is not a language tag.");
    if (revision != store_.currentTerms())
        throw Refusal(409, "revision_not_current",
                      "These are not the current terms. Load the account information again.");
    store_.consent(session.account.id, revision, language, clock_.now());
}

bool Accounts::publishTerms(const std::string& revision)
{
    return store_.publishTerms(revision, clock_.now());
}

}  // namespace accountserver
