#include "Tessera/Session/SessionCalls.hpp"

#include <algorithm>

namespace tessera
{
namespace
{

constexpr std::uint64_t tokenReadPause = 100'000'000;

}  // namespace

void Account::Session::keysChanged(const platform::ExternalKeyValueChange& change)
{
    requireMain();
    if (released_ || !change.changedKeys)
        return;
    const bool touched =
        std::ranges::find(*change.changedKeys, TokenAnnouncement::key) != change.changedKeys->end();
    if (touched)
        lookForTokenChange(4);
}

void Account::Session::lookForTokenChange(int reads)
{
    lookReads_ = reads;
    environmentTokenChangeTask.start(main_, pollToken(shared_from_this(), reads));
}

/// Waits for the keychain to catch up with the announcement. A keychain that cannot be read says
/// nothing, and is asked again. It belongs to the generation that it begins in: the look before it
/// may have begun one meanwhile.
platform::Awaitable<void> Account::Session::pollToken(Self self, int reads)
{
    const auto generation = self->machine.generation();
    const bool announced = reads > 1;
    auto delays = detail::retryDelays();
    for (int read = 1; read <= reads; ++read)
    {
        if (read > 1)
        {
            auto pause = self->services.clock->sleep(delays.next().nanoseconds);
            co_await std::move(pause);
        }
        auto reading = readToken(self);
        auto stored = co_await platform::detail::outcomeOf<Stored>(std::move(reading));
        self->requireCurrent(generation);
        // What was read counts, also when a newer announcement has cancelled this: in a flood of
        // them, none would be followed otherwise.
        if (stored.succeeded() && self->follow(std::move(stored).get(), announced))
            co_return;
        if (stored.succeeded() && self->machine.leftBehindToken())
        {
            auto removing = removeLeftBehind(self, generation);
            co_await std::move(removing);
        }
        co_await platform::checkCancellation();
    }
}

/// What a sign-out could not remove, because the keychain was locked, is removed when it can be.
platform::Awaitable<void> Account::Session::removeLeftBehind(Self self, Generation generation)
{
    std::function<bool(SessionStore&)> remove =
        [generation, token = *self->machine.leftBehindToken()](SessionStore& store)
    { return store.removeLeftBehind(generation, token); };
    auto removing = self->onStorage<bool>(std::move(remove));
    const auto removed = co_await platform::detail::outcomeOf<bool>(std::move(removing));
    const bool isGone = removed.succeeded() && removed.get();
    // Others are told of what is gone, whatever has begun here since.
    if (isGone && !self->released_)
        self->announce();
    self->requireCurrent(generation);
    if (!isGone || !self->machine.leftBehindToken())
        co_return;
    self->machine.tokenKnown(std::nullopt);
    self->clearDiagnostic();
}

bool Account::Session::follow(Stored token, bool announced)
{
    // A sign-out that has begun looks for itself.
    if (deauthenticating_)
        return true;
    const auto found = machine.tokenRead(token, announced);
    if (found == SessionMachine::StoredToken::another)
        followSignIn(std::move(token));
    if (found == SessionMachine::StoredToken::gone)
        followSignOut();
    return found != SessionMachine::StoredToken::known;
}

/// At most ten reads a second, however many announcements there are, and one at a time, however
/// slow the store is. The pause is that between two reads, not one after the last announcement, so
/// that none waits for the end of a flood.
platform::Awaitable<Account::Session::Stored> Account::Session::readToken(Self self)
{
    while (self->tokenReadPause_.isRunning())
    {
        auto end = self->tokenReadPause_.end();
        co_await std::move(end);
    }
    const auto underWay = std::make_shared<char>();
    self->tokenReadPause_.start(self->main_, pauseWhile(self->services.clock, underWay));
    std::function<Stored(SessionStore&)> read = [](SessionStore& store) { return store.token(); };
    // Awaited here and in no task of its own: what was read before a sign-in has written its token
    // must be known before that is.
    auto reading = self->onStorage<Stored>(std::move(read));
    co_return co_await std::move(reading);
}

platform::Awaitable<void> Account::Session::pauseWhile(std::shared_ptr<platform::Clock> clock,
                                                       std::weak_ptr<const void> reading)
{
    do
    {
        auto pause = clock->sleep(tokenReadPause);
        co_await std::move(pause);
    } while (!reading.expired());
}

/// The information goes with the session; the token is the other program's affair. Published at
/// once, so that nothing begins for a session that is gone.
void Account::Session::followSignOut()
{
    machine.followBegins();
    generationBegins();
    machine.tokenKnown(std::nullopt);
    const auto generation = machine.generation();
    carryOut(machine.signedOutElsewhere(now()));
    if (isCurrent(generation))
        clearDiagnostic();
}

void Account::Session::followSignIn(Stored token)
{
    machine.followBegins();
    generationBegins();
    machine.tokenKnown(std::move(token));
    startRefresh(AccountTransitionCause::otherProgramSignedIn);
}

}  // namespace tessera
