#include "Tessera/Session/Account.hpp"

#include "Tessera/Session/SessionCalls.hpp"

#include <utility>

namespace tessera
{

using platform::Awaitable;
using platform::SecretString;

Account::Account(AccountEnvironment environment, AccountClient client, platform::Services services)
    : session_(
          std::make_shared<Session>(std::move(environment), std::move(client), std::move(services)))
{
    session_->requireMain();
    session_->begin();
}

Account::~Account()
{
    session_->release();
}

const platform::URL& Account::accountURL() const noexcept
{
    return session_->environment.accountURL;
}

AccountEnvironment::Server Account::server() const noexcept
{
    return session_->environment.server;
}

AccountEnvironment::Distribution Account::distribution() const noexcept
{
    return session_->environment.distribution;
}

const AccountClient& Account::client() const noexcept
{
    return session_->client;
}

const AccountState& Account::state() const noexcept
{
    return session_->machine.state();
}

platform::Publisher<AccountState> Account::statePublisher() const
{
    return session_->stateSubject.publisher();
}

platform::Publisher<std::optional<SecretString>> Account::token() const
{
    return statePublisher().map([](const AccountState& state) { return state.token(); });
}

Account::NewsletterStatus Account::newsletterStatus() const noexcept
{
    return session_->newsletterStatus.value();
}

platform::Publisher<Account::NewsletterStatus> Account::newsletterStatusPublisher() const
{
    return session_->newsletterStatus.publisher();
}

const std::optional<AccountDiagnostic>& Account::diagnostic() const noexcept
{
    return session_->diagnostic.value();
}

platform::Publisher<std::optional<AccountDiagnostic>> Account::diagnosticPublisher() const
{
    return session_->diagnostic.publisher();
}

bool Account::requireLogin() const noexcept
{
    const auto channel = client().releaseChannel;
    return channel == AccountReleaseChannel::alpha || channel == AccountReleaseChannel::beta;
}

void Account::applicationWillFinishLaunching()
{
    session_->requireMain();
    session_->launch();
}

void Account::applicationDidBecomeActive()
{
    session_->requireMain();
    session_->activate();
}

Awaitable<void> Account::requestOneTimeCode(SecretString email)
{
    return session_->requestOneTimeCode(std::move(email));
}

Awaitable<AccountState> Account::signIn(SecretString email, SecretString oneTimeCode)
{
    return session_->signIn(std::move(email), std::move(oneTimeCode));
}

void Account::signOut()
{
    session_->requireMain();
    session_->signOut(AccountTransitionCause::signedOut);
}

Awaitable<bool> Account::serverSignOutEnded() const
{
    return session_->serverSignOutEnded();
}

Awaitable<void> Account::deleteAccount()
{
    return session_->deleteAccount();
}

Awaitable<void> Account::refresh(bool force)
{
    return session_->refresh(force);
}

Awaitable<void> Account::consentToTerms(std::string revision, std::string language)
{
    return session_->consentToTerms(std::move(revision), std::move(language));
}

Awaitable<void> Account::requestNewsletter()
{
    return session_->requestNewsletter();
}

void Account::authenticate(SecretString with)
{
    session_->requireMain();
    session_->authenticate(std::move(with));
}

void Account::deauthenticate()
{
    session_->requireMain();
    session_->deauthenticate();
}

Awaitable<std::vector<AccountTransition>> Account::history() const
{
    return session_->history();
}

}  // namespace tessera
