#pragma once

#include "Platform/Concurrency/Task.hpp"
#include "Tessera/Session/Account.hpp"
#include "tests/simulation/Judge.hpp"
#include "tests/soak/Random.hpp"
#include "tests/support/StepExecutor.hpp"

#include <array>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <vector>

namespace simulation
{

/// The threads of one program.
struct Program
{
    int client = 0;
    std::shared_ptr<StepQueue> main;
    std::shared_ptr<StepQueue> background;
    std::shared_ptr<StepQueue> storage;
};

/// One account, with the program that holds it: makes the calls and hears what is published.
class Host
{
public:
    Host(int number, Program program, platform::Services services,
         std::shared_ptr<WatchedItems> items, Judge& judge, AccountServer& server);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    int number() const { return number_; }
    const Program& program() const { return program_; }
    WatchedItems& items() { return *items_; }
    bool isReleased() const { return !account_; }

    /// Makes the call, on the main thread.
    void call(CallKind kind, soak::Random& random)
    {
        program_.main->runInside([&] { callNow(kind, random); });
    }

    /// Calls that were made and have not ended.
    std::vector<int> running() const;
    void cancel(int call);

    /// Lets go of the account.
    void release();

    /// When something is published next, a handler makes this call.
    void callFromHandler(CallKind kind, std::uint64_t seed) { fromHandler_ = {kind, seed}; }
    /// When something is published next, a handler lets go of the account.
    void releaseFromHandler() { releasesFromHandler_ = true; }
    void doNothingFromHandler()
    {
        fromHandler_.reset();
        releasesFromHandler_ = false;
    }
    /// At the next change of state, a handler subscribes another and leaves.
    void subscribeFromHandler() { joinsFromHandler_ = true; }

    /// Compares what each subscriber has heard.
    void judgeSubscribers();
    /// Nothing waits to be run: the newsletter's status is not of a request that has ended.
    void judgeNewsletter();

    /// The session is the one that is stored, or the reason is known. Whether there is one.
    bool judgeSession(const MemoryItemStore& stored);
    /// The same, and its information is there, too.
    void judgeEnd(const MemoryItemStore& stored, const AccountServer& server);

private:
    struct Subscriber
    {
        std::vector<tessera::AccountState> heard;
        platform::Subscription subscription;
    };

    void subscribe();
    void addSubscriber();
    void actFromHandler();
    void letGo();
    void callNow(CallKind kind, soak::Random& random);
    const Text* tokenToGive(soak::Random& random, int user);
    template <class T>
    void await(int call, platform::Awaitable<T> work);

    const int number_;
    const Program program_;
    const std::shared_ptr<WatchedItems> items_;
    Judge& judge_;
    AccountServer& server_;
    std::unique_ptr<tessera::Account> account_;
    std::map<int, platform::Task<void>> running_;
    platform::Subscription witness_;
    /// Of the state, the newsletter's status and the diagnostic.
    std::array<platform::Subscription, 3> meddlers_;
    platform::Subscription tokens_;
    std::vector<std::optional<std::string>> heardTokens_;
    std::list<Subscriber> subscribers_;
    std::size_t judgedStates_ = 0;
    /// With the seed of its choices.
    std::optional<std::pair<CallKind, std::uint64_t>> fromHandler_;
    bool joinsFromHandler_ = false;
    bool releasesFromHandler_ = false;
};

}  // namespace simulation
