#include "Tessera/Session/SessionCalls.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Tokens/LocalizedText.hpp"

#include <algorithm>
#include <cstdio>

namespace tessera
{

using platform::SecretString;

namespace
{

constexpr auto place = "Tessera/Account";

void requireComplete(const platform::Services& services)
{
    if (!services.mainActor)
        platform::fatal(
            "Tessera/Account: name the main thread in platform::Services::mainActor first");
    if (!services.clock || !services.urlSession || !services.keychain || !services.device ||
        !services.background || !services.storage)
        platform::fatal(
            "Tessera/Account: a service is missing, begin with platform::systemServices()");
    requireLocalizedTexts();
}

platform::Services withoutMainActor(platform::Services services)
{
    services.mainActor = nullptr;
    return services;
}

/// One file for each client of each environment.
std::shared_ptr<AccountHistory> historyOf(const AccountEnvironment& environment,
                                          const AccountClient& client,
                                          const platform::Services& services)
{
    if (services.stateFolder.empty())
        return nullptr;
    return std::make_shared<AccountHistory>(
        services.stateFolder / "history",
        environment.localizedKeychainIdentifier + "." + client.localizedKeychainIdentifier,
        services.diagnostics);
}

/// What only tells once more what the last line says would push out the lines that tell why, or
/// hide them: a copy of the program that follows a sign-out writes here, too.
void keep(const AccountHistory& history, const AccountTransition& transition)
{
    using Cause = AccountTransitionCause;
    const auto cause = transition.cause;
    const bool repeatsItsState = cause == Cause::restored || cause == Cause::noStoredSession ||
                                 cause == Cause::refreshed || cause == Cause::refreshFailed ||
                                 cause == Cause::otherProgramSignedOut;
    if (repeatsItsState || cause == Cause::refreshRefused)
    {
        const auto known = history.read();
        const bool isKnown = !known.empty() && known.back().state == transition.state &&
                             (repeatsItsState || known.back().cause == cause);
        if (isKnown)
            return;
    }
    history.append(transition);
}

}  // namespace

Account::Session::Session(AccountEnvironment ofEnvironment, AccountClient ofClient,
                          platform::Services with)
    : environment(std::move(ofEnvironment)),
      client(std::move(ofClient)),
      mainActor((requireComplete(with), with.mainActor)),
      services(withoutMainActor(with)),
      main_(platform::executorOf(with.mainActor)),
      network_(std::make_shared<EndableURLSession>(services.urlSession)),
      service(environment, client, network_, services.background),
      farewell_(environment, client, services.urlSession, services.background),
      store_(std::make_shared<SessionStore>(environment.localizedKeychainIdentifier,
                                            client.localizedKeychainIdentifier, services.keychain)),
      history_(historyOf(environment, client, services))
{
    jwtDecoder.setSignatureVerificationStrategy(environment.jwtPublicKey);
}

void Account::Session::begin()
{
    const std::weak_ptr<Session> held = weak_from_this();
    cancellables.push_back(stateSubject.publisher().subscribe(
        [held, main = main_](const AccountState& state)
        {
            // In a turn of its own, for it wakes a thread: those who show the state come first.
            auto handOff = [held, token = state.token()]
            {
                if (const auto self = held.lock(); self && !self->released_)
                    self->handOff(token);
            };
            boost::asio::post(main, std::move(handOff));
        }));
    if (!services.keyValueStore)
        return;
    auto onChange = [held](const platform::ExternalKeyValueChange& change)
    {
        if (const auto self = held.lock())
            self->keysChanged(change);
    };
    announcement_ = std::make_shared<TokenAnnouncement>(
        services.keyValueStore->join(main_, std::move(onChange)));
}

void Account::Session::release()
{
    requireMain();
    // Those who are being told of something now, and have not heard of it yet, never do.
    stateSubject.close();
    newsletterStatus.close();
    diagnostic.close();
    network_->end();
    if (const auto generation = std::exchange(deauthenticating_, std::nullopt))
    {
        store_->signOut(*generation);
        orderAnnouncement();
        machine.signedOut(AccountTransitionCause::deauthenticated);
        record(AccountTransitionCause::deauthenticated);
    }
    released_ = true;
    machine.released();
    if (store_->close(machine.generation()))
        orderAnnouncement();
    if (announcement_)
        announcement_->end();
    cancellables.clear();
    environmentTokenChangeTask.cancel();
    tokenReadPause_.cancel();
    generationBegins();
    for (const auto& call : calls_)
        call.cancel();
}

void Account::Session::requireMain() const
{
    const auto actor = mainActor.lock();
    if (actor && !actor->isCurrent())
        platform::fatal(std::string(place) + ": unexpected executor, this is not the main thread");
}

void Account::Session::requireCurrent(Generation generation) const
{
    if (!isCurrent(generation))
        throw platform::CancellationError();
}

void Account::Session::requireStanding(Belongs belongs, Generation generation) const
{
    if (released_ || (belongs != Belongs::toNobody && !isCurrent(generation)))
        throw platform::CancellationError();
}

/// Calls that are made one after the other may reach the main actor in another order.
bool Account::Session::mayBegin(const Made& made) const
{
    if (isCurrent(made.generation))
        return true;
    const auto& before = latestSignIn_;
    return isCurrent(before.begun) && before.made.generation == made.generation &&
           before.made.number < made.number;
}

/// Ends what belongs to older generations. The look for a changed token is not among it: it may be
/// what has begun this one.
void Account::Session::generationBegins()
{
    store_->generationBegins(machine.generation());
    refreshTask.cancel();
    accountRefreshRetryTask.cancel();
    afterConsentTask_.cancel();
    restoreTask_.cancel();
    if (signInTask_)
        signInTask_->cancel();
    signInTask_.reset();
    for (const auto& call : calls_)
        if (call.belongs != Belongs::toNobody && !isCurrent(call.generation))
            call.cancel();
}

void Account::Session::carryOut(const SessionOrders& orders)
{
    if (orders.removeInfo)
        removeInfo();
    // First, so that whoever hears of the state, and signs in or out, finds it to interrupt.
    if (orders.scheduleRetry)
        scheduleRetry();
    if (orders.publish)
        publish(*orders.publish);
}

void Account::Session::publish(AccountTransitionCause cause)
{
    record(cause);
    if (machine.state().token() != deleted_)
        deleted_.reset();
    using Change = NewsletterUser::Change;
    const auto change = newsletterUser_.changeWith(machine.state());
    const int user = newsletterUser_.number();
    stateSubject.send(machine.state());
    // A request that was made before the user was named can tell nothing about this one.
    const bool ends =
        change == Change::another ||
        (change == Change::named && newsletterStatus.value() == NewsletterStatus::submitting);
    const bool isMeant = !released_ && newsletterUser_.number() == user;
    if (ends && isMeant && newsletterStatus.value() != NewsletterStatus::idle)
        newsletterStatus.send(NewsletterStatus::idle);
}

void Account::Session::record(AccountTransitionCause cause)
{
    if (!history_)
        return;
    boost::asio::post(
        services.storage,
        [history = history_, transition = AccountTransition{now(), kind(machine.state()), cause}]
        { keep(*history, transition); });
}

void Account::Session::clearDiagnostic()
{
    if (diagnostic.value())
        report(std::nullopt);
}

void Account::Session::report(AccountDiagnosticCode code, const std::exception_ptr& error)
{
    report(AccountDiagnostic{code, detail::sentenceFor(error)});
}

void Account::Session::handOff(std::optional<SecretString> token)
{
    requireMain();
    platform::Task<void>::start(
        main_, token ? service.authenticate(*std::move(token)) : service.deauthenticate());
}

void Account::Session::orderAnnouncement()
{
    store_->tokenAnnounced();
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.3f", now().secondsSince1970);
    if (announcement_)
        announcement_->order(seconds);
}

void Account::Session::announce()
{
    orderAnnouncement();
    if (!announcement_)
        return;
    auto report = [self = weak_from_this(), main = main_]
    {
        auto onMain = [self]
        {
            if (const auto session = self.lock(); session && !session->released_)
                session->report(AccountDiagnostic{AccountDiagnosticCode::changeNotAnnounced, {}});
        };
        boost::asio::post(main, std::move(onMain));
    };
    boost::asio::post(services.storage,
                      [announcement = announcement_, report = std::move(report)]
                      {
                          if (!announcement->carryOut())
                              report();
                      });
}

void Account::Session::signOut(AccountTransitionCause cause)
{
    endSession(signOutBegins(), cause, {.onServer = true});
}

void Account::Session::signOutOf(const SecretString& token, AccountTransitionCause cause)
{
    endSession(signOutBegins(), cause, {.onServer = true, .onlyOf = &token});
}

Generation Account::Session::signOutBegins()
{
    deauthenticating_.reset();
    const auto generation = machine.signOutBegins(now());
    environmentTokenChangeTask.cancel();
    generationBegins();
    return generation;
}

void Account::Session::endSession(Generation generation, AccountTransitionCause cause,
                                  const End& end)
{
    // Whoever hears of the state may let go of the account.
    const auto self = shared_from_this();
    auto [token, left] = store_->signOut(generation, end.onlyOf);
    using Left = SessionStore::Left;
    if (left == Left::unremoved)
        machine.tokenLeftBehind(token);
    else if (left == Left::unreadable)
        machine.tokenLeftBehind(platform::SecretBytes(end.onlyOf->bytes()));
    else
        machine.tokenKnown(std::nullopt);
    if (left == Left::nothing || left == Left::unremoved)
        announce();
    // Before anybody hears of this, so that a sign-in by whoever does finds it to interrupt.
    if (left == Left::anothers)
        lookForTokenChange(1);
    const auto orders = machine.signedOut(cause);
    clearDiagnostic();
    if (left == Left::unremoved || left == Left::unreadable)
        report(AccountDiagnosticCode::sessionNotRemoved,
               std::make_exception_ptr(AccountError(AccountError::keychainAccess)));
    if (!released_)
        carryOut(orders);
    if (end.onlyOf)
        endOnServer(*end.onlyOf);
    else if (end.onServer && token)
        endOnServer(SecretString(*std::move(token)));
}

/// Holds its service alone, and outlives the account.
void Account::Session::endOnServer(const SecretString& token)
{
    std::erase_if(serverSignOuts_, [](const auto& task) { return task.finished(); });
    serverSignOuts_.push_back(platform::Task<void>::start(main_, farewell_.signOut(token)));
}

/// Begun at once, so that it comes before whatever the host does next, and done in a turn of its
/// own.
void Account::Session::deauthenticate()
{
    deauthenticating_ = signOutBegins();
    auto steps = [](Self self, Generation begun) -> Awaitable<void>
    {
        if (self->deauthenticating_ == begun)
            self->finishDeauthentication();
        co_return;
    };
    auto work = detail::inOwnTurn<void>(steps(shared_from_this(), *deauthenticating_));
    platform::Task<void>::start(main_, std::move(work));
}

void Account::Session::finishDeauthentication()
{
    if (const auto generation = std::exchange(deauthenticating_, std::nullopt))
        endSession(*generation, AccountTransitionCause::deauthenticated, {.onServer = false});
}

/// The storage takes its work in order: what a later session writes comes after this.
void Account::Session::removeInfo()
{
    store_->orderInfoRemoval();
    boost::asio::post(services.storage, [store = store_] { store->removeInfoAsOrdered(); });
}

}  // namespace tessera
