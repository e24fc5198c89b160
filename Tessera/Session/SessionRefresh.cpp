#include "Tessera/API/Retry.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Session/SessionCalls.hpp"

namespace tessera
{

using platform::SecretString;

namespace
{

bool isAboutRestoring(AccountDiagnosticCode code)
{
    return code == AccountDiagnosticCode::keychainUnreadable ||
           code == AccountDiagnosticCode::storedTokenUnusable;
}

}  // namespace

// ---- The stored session

void Account::Session::launch()
{
    // A refresh that runs already reads the keychain first.
    if (!machine.restoresFirst() || restoreTask_.isRunning() || refreshTask.isRunning() ||
        deauthenticating_)
        return;
    // A sign-in comes first; the stored session is of interest if it adopts none.
    if (machine.signingIn())
    {
        interrupted_.restore = true;
        return;
    }
    restoreTask_.start(main_, restoreAtLaunch(shared_from_this(), machine.generation()));
}

platform::Awaitable<void> Account::Session::restoreAtLaunch(Self self, Generation generation)
{
    auto steps = restore(self, generation, AccountTransitionCause::restored);
    const auto outcome = co_await platform::detail::outcomeOf<void>(std::move(steps));
    if (self->isCurrent(generation) && !outcome.succeeded())
        self->reportUnrestored(outcome.error());
    outcome.get();
}

void Account::Session::reportUnrestored(const std::exception_ptr& error)
{
    if (detail::isKeychainError(error))
        report(AccountDiagnosticCode::keychainUnreadable, error);
    else
        report(AccountDiagnostic{AccountDiagnosticCode::storedTokenUnusable,
                                 errorSentence("Stored_Session_Error")});
}

platform::Awaitable<void> Account::Session::restoreOnce(Self self, Generation generation)
{
    if (!self->restoreTask_.isRunning())
    {
        auto steps = restore(self, generation, AccountTransitionCause::restored);
        self->restoreTask_.start(self->main_, std::move(steps));
    }
    auto end = self->restoreTask_.end();
    co_await std::move(end);
}

/// Information that is damaged, or was signed for another client, is as good as none.
platform::Awaitable<void> Account::Session::restore(Self self, Generation generation,
                                                    AccountTransitionCause cause)
{
    // Both in one turn of the storage, since this is what a launch waits for.
    std::function<SessionStore::Items(SessionStore&)> read = [](SessionStore& store)
    { return store.items(); };
    auto reading = self->onStorage<SessionStore::Items>(std::move(read));
    const auto items = co_await std::move(reading);
    self->requireCurrent(generation);
    self->machine.tokenKnown(items.token);
    StoredSession stored;
    if (items.token)
        stored.token = self->jwtDecoder.decode<AccountToken>(items.token->view());
    if (items.info)
        self->decodeStoredInfo(*items.info, stored);
    if (self->diagnostic.value() && isAboutRestoring(self->diagnostic.value()->code))
        self->clearDiagnostic();
    self->requireCurrent(generation);
    self->carryOut(self->machine.restored(std::move(stored), cause));
}

void Account::Session::decodeStoredInfo(const platform::SecretBytes& info, StoredSession& session)
{
    try
    {
        session.info = verifiedInfo(info.view());
    }
    catch (const std::exception&)
    {
        session.infoUnusable = true;
    }
}

// ---- The account information

platform::Awaitable<SecretString> Account::Session::fetchInfo(Self self, Generation generation,
                                                              SecretString token)
{
    self->requireCurrent(generation);
    self->handOff(std::move(token));
    auto call = self->service.info();
    co_return co_await std::move(call);
}

AccountInfoJWT Account::Session::verifiedInfo(std::span<const std::byte> text)
{
    auto info = jwtDecoder.decode<AccountInfo>(text);
    if (info.payload.audience != client.audience())
        throw AccountError(AccountError::audienceMismatch);
    return info;
}

platform::Awaitable<bool> Account::Session::keepInfo(Self self, Generation generation,
                                                     SecretString text)
{
    std::function<bool(SessionStore&)> write = [generation, text](SessionStore& store)
    { return store.writeInfo(generation, text); };
    auto writing = self->onStorage<bool>(std::move(write));
    const auto written = co_await platform::detail::outcomeOf<bool>(std::move(writing));
    self->requireCurrent(generation);
    if (!written.succeeded())
        self->report(AccountDiagnosticCode::infoNotStored, written.error());
    co_return written.succeeded();
}

// ---- Refresh

platform::Awaitable<void> Account::Session::refresh(bool force)
{
    const auto self = shared_from_this();
    Work<void> work = [self, force](Generation generation)
    { return refreshWhenDue(self, generation, force); };
    return operation<void>(Belongs::toSession, std::move(work));
}

platform::Awaitable<void> Account::Session::refreshWhenDue(Self self, Generation generation,
                                                           bool force)
{
    using Answer = SessionMachine::RefreshAnswer;
    auto answer = self->machine.refreshAsked(force, self->now());
    if (answer == Answer::waitForSignIn)
    {
        auto wait = signInEnded(self);
        co_await std::move(wait);
        self->requireCurrent(generation);
        answer = self->machine.refreshAsked(force, self->now());
    }
    if (answer == Answer::notDue)
        co_return;
    if (answer == Answer::start)
        self->startRefresh();
    auto end = self->refreshTask.end();
    co_await std::move(end);
}

platform::Awaitable<void> Account::Session::signInEnded(Self self)
{
    while (self->signInTask_ && self->machine.signingIn())
    {
        auto end = self->signInTask_->value();
        co_await platform::detail::outcomeOf<AccountState>(std::move(end));
        co_await platform::checkCancellation();
    }
}

void Account::Session::startRefresh(Restoration restoration)
{
    if (!restoration && machine.restoresFirst())
        restoration = AccountTransitionCause::restored;
    machine.refreshStarts();
    refreshTask.start(main_, refreshToEnd(shared_from_this(), machine.generation(), restoration));
}

platform::Awaitable<void> Account::Session::refreshToEnd(Self self, Generation generation,
                                                         Restoration restoration)
{
    bool restored = true;
    std::exception_ptr failure;
    try
    {
        if (restoration)
        {
            restored = false;
            auto steps = *restoration == AccountTransitionCause::restored
                             ? restoreOnce(self, generation)
                             : restore(self, generation, *restoration);
            co_await std::move(steps);
            restored = true;
        }
        auto steps = loadInfo(self, generation);
        co_await std::move(steps);
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    if (!failure)
        co_return;
    self->requireCurrent(generation);
    if (detail::isCancellation(failure))
        self->machine.refreshCancelled();
    else
        self->refreshFails(failure, !restored);
    std::rethrow_exception(failure);
}

/// What a refresh is about: the information for the token of the state.
platform::Awaitable<void> Account::Session::loadInfo(Self self, Generation generation)
{
    self->requireCurrent(generation);
    const auto* profile = self->machine.state().get<AccountProfile>();
    const auto* pending = self->machine.state().get<AccountPendingProfile>();
    if (!profile && !pending)
        throw AccountError(AccountError::accountRequired);
    auto token = profile ? profile->tokenJWT : pending->tokenJWT;

    auto fetching = fetchInfo(self, generation, token.string);
    const auto text = co_await std::move(fetching);
    self->requireCurrent(generation);
    auto info = self->verifiedInfo(text.bytes());
    if (info.payload.user != token.payload.user)
        throw AccountError(AccountError::audienceMismatch);
    auto keeping = keepInfo(self, generation, info.string);
    const bool kept = co_await std::move(keeping);
    if (kept)
        self->clearDiagnostic();
    self->requireCurrent(generation);
    self->carryOut(self->machine.refreshed(std::move(token), std::move(info), self->now()));
    self->requireCurrent(generation);
}

void Account::Session::refreshFails(const std::exception_ptr& error, bool notRestored)
{
    const bool refused = detail::isRefusal(error);
    const auto orders =
        machine.refreshFailed({platform::describe(error), refused, notRestored}, now());
    const auto generation = machine.generation();
    if (refused && !orders.publish)
        record(AccountTransitionCause::refreshRefused);
    carryOut(orders);
    if (!isCurrent(generation))
        return;
    if (notRestored)
        reportUnrestored(error);
    else if (!machine.state().get<AccountState::SignedOut>())
        report(
            refused ? AccountDiagnosticCode::sessionRefused : AccountDiagnosticCode::refreshFailed,
            error);
}

void Account::Session::scheduleRetry()
{
    if (!accountRefreshRetryTask.isRunning())
        accountRefreshRetryTask.start(main_,
                                      retryRefresh(shared_from_this(), machine.generation()));
}

/// Four requests, at 0, 1, 3 and 7 seconds after the failure, as long as it still is one.
platform::Awaitable<void> Account::Session::retryRefresh(Self self, Generation generation)
{
    std::function<Awaitable<void>()> attempt = [self, generation]
    { return retryAttempt(self, generation); };
    auto attempts =
        retry<void>(4, std::move(attempt), detail::backOffUnlessCancelled(), self->services.clock);
    co_await std::move(attempts);
}

platform::Awaitable<void> Account::Session::retryAttempt(Self self, Generation generation)
{
    self->requireCurrent(generation);
    if (!self->machine.retryCalledFor())
        co_return;
    self->startRefresh();
    auto end = self->refreshTask.end();
    co_await std::move(end);
}

void Account::Session::activate()
{
    // The session is about to end; there is nothing to keep fresh.
    if (deauthenticating_)
        return;
    interrupted_.activation |= machine.signingIn();
    if (machine.refreshesOnActivation(now()))
        startRefresh();
    // A refresh that restores the session reads the token itself, and would be overtaken.
    const bool isRead = machine.restoresFirst() && refreshTask.isRunning();
    if (!isRead && !environmentTokenChangeTask.isRunning())
        lookForTokenChange(1);
}

}  // namespace tessera
