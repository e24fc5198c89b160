#include "Tessera/API/Retry.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Session/SessionCalls.hpp"

#include <algorithm>

namespace tessera
{

using platform::CancellationError;
using platform::SecretString;

Generation Account::Session::signInBegins()
{
    // Of a sign-in before this one, what that had interrupted counts on.
    if (!machine.signingIn())
        interrupted_ = {};
    interrupted_.restore |= restoreTask_.isRunning();
    interrupted_.refresh |= refreshTask.isRunning() || accountRefreshRetryTask.isRunning() ||
                            afterConsentTask_.isRunning();
    if (environmentTokenChangeTask.isRunning())
        interrupted_.look = std::max(interrupted_.look, lookReads_);
    const auto generation = machine.signInBegins();
    environmentTokenChangeTask.cancel();
    generationBegins();
    return generation;
}

/// A sign-in that has adopted no token leaves everything as it was.
void Account::Session::signInEnds()
{
    machine.signInEnds();
    signInTask_.reset();
    const auto interrupted = std::exchange(interrupted_, {});
    const auto generation = machine.generation();
    endDeleted();
    if (!isCurrent(generation))
        return;
    if (interrupted.restore)
        launch();
    // A sign-in before this one may have stored its token and then been superseded.
    if (machine.storedTokenIsUnpublished())
        startRefresh(AccountTransitionCause::restored);
    else if (interrupted.refresh && machine.retryCalledFor())
        scheduleRetry();
    else if (interrupted.refresh ||
             (interrupted.activation && machine.refreshesOnActivation(now())))
        startRefresh();
    if (interrupted.look > 0 && !environmentTokenChangeTask.isRunning())
        lookForTokenChange(interrupted.look);
}

platform::Awaitable<AccountState> Account::Session::signIn(SecretString email, SecretString code)
{
    const auto self = shared_from_this();
    Work<AccountState> work =
        [self, email = std::move(email), code = std::move(code)](Generation generation)
    { return exchange(self, generation, email, code); };
    return operation<AccountState>(Belongs::beginsOne, std::move(work));
}

platform::Awaitable<AccountState> Account::Session::signInToEnd(Self self, Generation generation,
                                                                Awaitable<AccountState> steps)
{
    auto outcome = co_await platform::detail::outcomeOf<AccountState>(std::move(steps));
    if (self->isCurrent(generation))
        self->signInEnds();
    co_return std::move(outcome).get();
}

/// The code for a token. One that comes back too late, or too late for a caller who has cancelled,
/// is a session that nobody uses: the server is told to end it.
platform::Awaitable<AccountState> Account::Session::exchange(Self self, Generation generation,
                                                             SecretString email, SecretString code)
{
    const auto* profile = self->machine.state().get<AccountProfile>();
    const bool authenticated = profile && profile->info().isAnonymous();
    if (authenticated)
        self->handOff(profile->token());
    auto call = self->service.signIn(std::move(email), std::move(code), authenticated);
    auto text = co_await std::move(call);
    const auto cancellation = co_await boost::asio::this_coro::cancellation_state;
    const bool cancelled = cancellation.cancelled() != boost::asio::cancellation_type::none;
    if (cancelled || !self->isCurrent(generation))
    {
        if (!self->released_)
            self->endOnServer(text);
        throw CancellationError();
    }
    auto adoption = adopt(self, generation, std::move(text), true);
    co_return co_await std::move(adoption);
}

platform::Awaitable<AccountState> Account::Session::adopt(Self self, Generation generation,
                                                          SecretString text, bool fromServer)
{
    self->requireCurrent(generation);
    auto token = self->jwtDecoder.decode<AccountToken>(text.bytes());
    auto keeping = keepToken(self, generation, std::move(text), fromServer);
    co_await std::move(keeping);
    self->interrupted_ = {};
    auto loading = loadAfterSignIn(self, generation, std::move(token));
    co_return co_await std::move(loading);
}

/// Written before anything else: a program that is killed from now on is signed in. A token that
/// was not written, or came too late to be, is signed out on the server that issued it.
platform::Awaitable<void> Account::Session::keepToken(Self self, Generation generation,
                                                      SecretString text, bool fromServer)
{
    std::function<bool(SessionStore&)> write = [generation, text](SessionStore& store)
    { return store.writeToken(generation, text); };
    auto writing = self->onStorage<bool>(std::move(write));
    const auto written = co_await platform::detail::outcomeOf<bool>(std::move(writing));
    const bool stored = written.succeeded() && written.get();
    // Others are told of what is stored, whatever has become of this sign-in. (A released account
    // has done so already.)
    if (stored && !self->released_)
        self->announce();
    if (stored && self->isCurrent(generation))
    {
        self->machine.tokenKnown(platform::SecretBytes(text.bytes()));
        self->clearDiagnostic();
        self->requireCurrent(generation);
        co_return;
    }
    if (stored && !self->released_)
        self->storedTooLate(generation, text);
    if (!stored && fromServer && !self->released_)
        self->endOnServer(text);
    self->requireCurrent(generation);
    if (written.succeeded())
        throw CancellationError();
    std::rethrow_exception(written.error());
}

/// What is stored counts: it is taken up unless the sign-in that came between stores another.
void Account::Session::storedTooLate(Generation begun, const SecretString& token)
{
    machine.tokenStoredTooLate(begun, platform::SecretBytes(token.bytes()));
    // One that runs may have read before this was written.
    if (!machine.signingIn())
        lookForTokenChange(4);
}

platform::Awaitable<AccountState> Account::Session::loadAfterSignIn(Self self,
                                                                    Generation generation,
                                                                    AccountTokenJWT token)
{
    std::optional<AccountInfoJWT> info;
    std::exception_ptr failure;
    try
    {
        std::function<Awaitable<SecretString>()> fetch = [self, generation, text = token.string]
        { return fetchInfo(self, generation, text); };
        auto fetching = retry<SecretString>(5, std::move(fetch), detail::backOffUnlessCancelled(),
                                            self->services.clock);
        const auto text = co_await std::move(fetching);
        info = self->verifiedInfo(text.bytes());
    }
    catch (...)
    {
        failure = std::current_exception();
    }
    self->requireCurrent(generation);
    if (failure)
    {
        // The token is stored, so the session stands; a caller who has cancelled sees no message.
        const bool cancelled = detail::isCancellation(failure);
        std::optional<std::string> message;
        if (!cancelled)
            message = infoErrorMessage(platform::describe(failure));
        self->carryOut(
            self->machine.signedInWithoutInfo(std::move(token), std::move(message), self->now()));
        if (cancelled)
            throw CancellationError();
        self->requireCurrent(generation);
        co_return self->machine.state();
    }
    if (info->payload.user != token.payload.user)
    {
        self->signOutOf(token.string, AccountTransitionCause::otherUsersInfo);
        // Whoever hears of its end may let go of the account.
        self->requireStanding(Belongs::toNobody, generation);
        co_return self->machine.state();
    }
    auto keeping = keepInfo(self, generation, info->string);
    co_await std::move(keeping);
    self->requireCurrent(generation);
    self->carryOut(self->machine.signedIn(std::move(token), *std::move(info), self->now()));
    self->requireCurrent(generation);
    co_return self->machine.state();
}

void Account::Session::authenticate(SecretString token)
{
    const auto self = shared_from_this();
    const auto called = machine.generation();
    finishDeauthentication();
    // Whoever heard of that may have begun something newer.
    if (!isCurrent(called))
        return;
    const auto generation = signInBegins();
    auto adoption = [](Self session, Generation begun, SecretString text) -> Awaitable<AccountState>
    {
        auto adopting =
            detail::inOwnTurn<AccountState>(adopt(session, begun, std::move(text), false));
        auto steps = signInToEnd(session, begun, std::move(adopting));
        auto outcome = co_await platform::detail::outcomeOf<AccountState>(std::move(steps));
        if (session->isCurrent(begun) && !outcome.succeeded() &&
            !detail::isCancellation(outcome.error()))
            session->report(AccountDiagnosticCode::authenticationFailed, outcome.error());
        co_return std::move(outcome).get();
    };
    auto work = adoption(self, generation, std::move(token));
    signInTask_ = platform::Task<AccountState>::start(main_, std::move(work));
}

}  // namespace tessera
