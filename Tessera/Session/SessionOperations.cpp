#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Session/SessionCalls.hpp"

namespace tessera
{

using platform::SecretString;

SecretString Account::Session::requiredToken() const
{
    auto token = machine.state().token();
    if (!token)
        throw AccountError(AccountError::accountRequired);
    return *std::move(token);
}

platform::Awaitable<void> Account::Session::requestOneTimeCode(SecretString email)
{
    const auto self = shared_from_this();
    Work<void> work = [self, email = std::move(email)](Generation)
    { return self->service.requestOneTimeCode(email); };
    return operation<void>(Belongs::toNobody, std::move(work));
}

platform::Awaitable<void> Account::Session::deleteAccount()
{
    auto steps = [](Self self, Generation generation) -> Awaitable<void>
    {
        const auto token = self->requiredToken();
        auto call = self->service.deleteAccount(token);
        co_await std::move(call);
        // What the server has confirmed counts, whatever has begun here since.
        self->requireStanding(Belongs::toNobody, generation);
        const bool wasCurrent = self->isCurrent(generation);
        if (self->machine.state().token() == token)
            self->deleted_ = token;
        self->endDeleted();
        if (!wasCurrent)
            throw platform::CancellationError();
    };
    const auto self = shared_from_this();
    Work<void> work = [self, steps](Generation generation) { return steps(self, generation); };
    return operation<void>(Belongs::toSession, std::move(work));
}

/// A sign-in that is under way goes on first; it may have another session to show for it. A
/// `deauthenticate` ends whatever there is.
void Account::Session::endDeleted()
{
    if (!deleted_ || machine.signingIn() || deauthenticating_)
        return;
    const auto token = *std::exchange(deleted_, std::nullopt);
    signOutOf(token, AccountTransitionCause::deleted);
}

platform::Awaitable<void> Account::Session::consentToTerms(std::string revision,
                                                           std::string language)
{
    auto steps = [](Self self, Generation generation, std::string ofRevision,
                    std::string inLanguage) -> Awaitable<void>
    {
        self->handOff(self->requiredToken());
        auto call = self->service.consentToTerms(std::move(ofRevision), std::move(inLanguage));
        co_await std::move(call);
        self->requireCurrent(generation);
        self->afterConsentTask_.start(self->main_, refreshAfterConsent(self, generation));
    };
    const auto self = shared_from_this();
    Work<void> work = [self, steps, revision = std::move(revision),
                       language = std::move(language)](Generation generation)
    { return steps(self, generation, revision, language); };
    return operation<void>(Belongs::toSession, std::move(work));
}

/// A refresh that was under way may have been answered before the consent.
platform::Awaitable<void> Account::Session::refreshAfterConsent(Self self, Generation generation)
{
    if (self->refreshTask.isRunning())
    {
        auto end = self->refreshTask.end();
        co_await platform::detail::outcomeOf<void>(std::move(end));
        co_await platform::checkCancellation();
    }
    self->requireCurrent(generation);
    auto refreshing = refreshWhenDue(self, generation, true);
    co_await std::move(refreshing);
}

platform::Awaitable<void> Account::Session::sendNewsletter(Self self, Generation generation,
                                                           SecretString token)
{
    // Whoever heard of the new status may have signed out.
    self->requireCurrent(generation);
    self->handOff(std::move(token));
    auto call = self->service.requestNewsletter();
    co_await std::move(call);
}

platform::Awaitable<void> Account::Session::requestNewsletter()
{
    auto steps = [](Self self, Generation generation) -> Awaitable<void>
    {
        auto token = self->requiredToken();
        const int user = self->newsletterUser_.number();
        self->newsletterStatus.send(NewsletterStatus::submitting);
        auto sending = sendNewsletter(self, generation, std::move(token));
        const auto outcome = co_await platform::detail::outcomeOf<void>(std::move(sending));
        // The status belongs to the user, not to the session; a released account has none.
        const bool sameUser = !self->released_ && self->newsletterUser_.number() == user;
        if (sameUser && outcome.succeeded() && self->isCurrent(generation))
            self->newsletterStatus.send(NewsletterStatus::subscribed);
        else if (sameUser && self->newsletterStatus.value() == NewsletterStatus::submitting)
            self->newsletterStatus.send(NewsletterStatus::idle);
        outcome.get();
        self->requireCurrent(generation);
    };
    const auto self = shared_from_this();
    Work<void> work = [self, steps](Generation generation) { return steps(self, generation); };
    return operation<void>(Belongs::toSession, std::move(work));
}

Account::Session::NewsletterUser::Change Account::Session::NewsletterUser::changeWith(
    const AccountState& state)
{
    const auto change = found(state);
    if (change != Change::none)
        ++number_;
    return change;
}

Account::Session::NewsletterUser::Change Account::Session::NewsletterUser::found(
    const AccountState& state)
{
    if (state.get<AccountState::SignedOut>())
    {
        user_.reset();
        uuid_.reset();
        return Change::another;
    }
    const auto* profile = state.get<AccountProfile>();
    const auto* pending = state.get<AccountPendingProfile>();
    if (!profile && !pending)
        return Change::none;
    const auto& user = profile ? profile->tokenJWT.payload.user : pending->tokenJWT.payload.user;
    const auto uuid = state.uuid();
    const bool isAnother = user_ != user || (uuid_ && uuid && uuid_ != uuid);
    const bool isNamed = uuid && !uuid_;
    user_ = user;
    if (isAnother || uuid)
        uuid_ = uuid;
    if (isAnother)
        return Change::another;
    return isNamed ? Change::named : Change::none;
}

/// A session that the server does not know any more has ended too.
platform::Awaitable<bool> Account::Session::serverSignOutEnded() const
{
    auto steps = [](std::vector<platform::Task<void>> tasks) -> Awaitable<bool>
    {
        bool confirmed = true;
        for (const auto& task : tasks)
        {
            auto end = task.value();
            const auto outcome = co_await platform::detail::outcomeOf<void>(std::move(end));
            co_await platform::checkCancellation();
            confirmed = outcome.succeeded() || detail::isRefusal(outcome.error());
        }
        co_return confirmed;
    };
    requireMain();
    return steps(serverSignOuts_);
}

platform::Awaitable<std::vector<AccountTransition>> Account::Session::history()
{
    using Transitions = std::vector<AccountTransition>;
    auto read = [](std::shared_ptr<AccountHistory> history) -> Awaitable<Transitions>
    { co_return history ? history->read() : Transitions(); };
    requireMain();
    return platform::runOn<Transitions>(services.storage, read(history_));
}

}  // namespace tessera
