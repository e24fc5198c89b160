#include "Tessera/API/Backoff.hpp"
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
    if (!change.changedKeys)
        return;
    const bool touched =
        std::ranges::find(*change.changedKeys, detail::tokenTouched) != change.changedKeys->end();
    if (touched)
        lookForTokenChange(4);
}

void Account::Session::lookForTokenChange(int reads)
{
    environmentTokenChangeTask.start(main_,
                                     pollToken(shared_from_this(), machine.generation(), reads));
}

/// Waits for the keychain to catch up with the announcement. A keychain that cannot be read says
/// nothing, and is asked again.
platform::Awaitable<void> Account::Session::pollToken(Self self, Generation generation, int reads)
{
    using StoredToken = SessionMachine::StoredToken;
    auto delays = Backoff::exponential(2, RetryDelay::seconds(1)).makeIterator();
    for (int read = 1; read <= reads; ++read)
    {
        if (read > 1)
        {
            auto pause = self->services.clock->sleep(delays.next().nanoseconds);
            co_await std::move(pause);
        }
        auto reading = readToken(self);
        auto stored = co_await platform::detail::outcomeOf<Stored>(std::move(reading));
        co_await platform::checkCancellation();
        self->requireCurrent(generation);
        if (!stored.succeeded())
            continue;
        auto token = std::move(stored).get();
        const auto found = self->machine.tokenRead(token);
        if (found == StoredToken::another)
        {
            self->followSignIn(std::move(token));
            co_return;
        }
        if (found == StoredToken::gone)
        {
            auto following = followSignOut(self);
            co_await std::move(following);
            co_return;
        }
    }
}

/// At most ten reads a second, however many announcements there are. The pause is that between two
/// reads, not one after the last announcement, so that none waits for the end of a flood.
platform::Awaitable<Account::Session::Stored> Account::Session::readToken(Self self)
{
    while (self->tokenReadPause_.isRunning())
    {
        auto end = self->tokenReadPause_.end();
        co_await std::move(end);
    }
    self->tokenReadPause_.start(self->main_, self->services.clock->sleep(tokenReadPause));
    std::function<Stored(SessionStore&)> read = [](SessionStore& store) { return store.token(); };
    auto reading = self->onStorage<Stored>(std::move(read));
    co_return co_await std::move(reading);
}

/// The information goes with the session; the token is the other program's affair.
platform::Awaitable<void> Account::Session::followSignOut(Self self)
{
    const auto generation = self->machine.followBegins();
    self->generationBegins();
    auto removal = removeInfo(self, generation);
    co_await std::move(removal);
    co_await platform::checkCancellation();
    self->requireCurrent(generation);
    self->machine.tokenKnown(std::nullopt);
    self->carryOut(self->machine.signedOutElsewhere(self->now()));
}

void Account::Session::followSignIn(Stored token)
{
    machine.followBegins();
    generationBegins();
    machine.tokenKnown(std::move(token));
    startRefresh(AccountTransitionCause::otherProgramSignedIn);
}

}  // namespace tessera
