#pragma once

#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/MainActor.hpp"
#include "Platform/Concurrency/Task.hpp"
#include "Platform/Concurrency/WorkerThread.hpp"
#include "tests/support/ManualClock.hpp"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

/// What holds for the main actor of every event loop. A `Host` has an `actor`, loops (`Host::Loop`
/// with `run` and `quit`), work of its own (`post`), and an `end` after which nothing runs.
template <class Host>
class MainActorSuite : public testing::Test
{
protected:
    using Loop = typename Host::Loop;

    void enqueue(std::function<void()> work) { host.actor->enqueue(std::move(work)); }
    auto note(std::string name)
    {
        return [this, name] { seen.push_back(name); };
    }

    Host host;
    Loop loop;
    std::vector<std::string> seen;
};

TYPED_TEST_SUITE_P(MainActorSuite);

TYPED_TEST_P(MainActorSuite, RunsWorkLaterAndInTheOrderOfTheCalls)
{
    this->enqueue(this->note("a"));
    this->host.actor->enqueueAll({this->note("b"), this->note("c")});
    this->host.actor->enqueueAll({});
    this->enqueue(
        [this]
        {
            this->enqueue([this] { this->loop.quit(); });
            this->note("d")();
        });
    EXPECT_THAT(this->seen, testing::IsEmpty());

    this->loop.run();

    EXPECT_THAT(this->seen, testing::ElementsAre("a", "b", "c", "d"));
}

TYPED_TEST_P(MainActorSuite, KeepsTheOrderOfEachOfManyThreads)
{
    constexpr int threads = 4, pieces = 2000;
    std::vector<std::vector<int>> arrived(threads);
    int left = threads * pieces, elsewhere = 0;
    const auto piece = [&](int thread, int number)
    {
        return [&, thread, number]
        {
            elsewhere += this->host.actor->isCurrent() ? 0 : 1;
            arrived[thread].push_back(number);
            if (--left == 0)
                this->loop.quit();
        };
    };

    std::atomic<int> current = 0;
    std::vector<std::jthread> senders;
    for (int thread = 0; thread < threads; ++thread)
        senders.emplace_back(
            [&, thread, actor = this->host.actor]
            {
                current += actor->isCurrent() ? 1 : 0;
                for (int number = 0; number < pieces; number += 2)
                {
                    if (thread % 2 == 0)
                        actor->enqueueAll({piece(thread, number), piece(thread, number + 1)});
                    else
                        actor->enqueue(piece(thread, number)),
                            actor->enqueue(piece(thread, number + 1));
                }
            });
    this->loop.run();

    EXPECT_TRUE(this->host.actor->isCurrent());
    EXPECT_EQ(current, 0);
    EXPECT_EQ(elsewhere, 0);
    for (const auto& numbers : arrived)
        EXPECT_TRUE(numbers.size() == pieces && std::ranges::is_sorted(numbers));
}

TYPED_TEST_P(MainActorSuite, ADialogOpenedByAPieceHoldsUpNoneOfTheOthers)
{
    typename TestFixture::Loop dialog;
    const auto open = [this, &dialog]
    {
        this->note("opens")();
        dialog.run();
        this->note("closed")();
    };
    const auto close = [this, &dialog]
    {
        this->note("within")();
        std::thread([this, &dialog] { this->enqueue([&dialog] { dialog.quit(); }); }).join();
    };

    this->host.actor->enqueueAll({open, close, this->note("after")});
    this->enqueue([this] { this->enqueue([this] { this->loop.quit(); }); });
    this->loop.run();

    EXPECT_THAT(this->seen, testing::ElementsAre("opens", "within", "after", "closed"));
}

TYPED_TEST_P(MainActorSuite, GivesTheHostATurnBetweenPieces)
{
    const auto postOwn = [this] { this->host.post(this->note("the host's")); };
    this->host.actor->enqueueAll({postOwn, this->note("a"), this->note("b"), this->note("c")});
    this->enqueue([this] { this->loop.quit(); });
    this->loop.run();

    ASSERT_EQ(this->seen.size(), 4u);
    EXPECT_LE(std::ranges::find(this->seen, "the host's"), std::ranges::find(this->seen, "b"));
}

TYPED_TEST_P(MainActorSuite, DropsAtTheEndWhatHasNotRun)
{
    const auto held = std::make_shared<int>();
    // Letting go of a piece may come back to the actor.
    const std::shared_ptr<int> returning(
        new int,
        [actor = std::weak_ptr(this->host.actor), held](int* memory)
        {
            delete memory;
            if (const auto found = actor.lock())
                found->enqueue([held] { FAIL(); });
        });
    this->enqueue([this] { this->loop.quit(); });
    this->enqueue([held] { FAIL(); });
    this->enqueue([kept = returning] { FAIL(); });
    this->host.actor->enqueueAll({[held] { FAIL(); }, [held] { FAIL(); }});
    this->loop.run();
    ASSERT_GT(held.use_count(), 4);

    this->host.end();

    EXPECT_EQ(held.use_count(), 2);
    EXPECT_EQ(returning.use_count(), 1);
}

TYPED_TEST_P(MainActorSuite, EndsWhileThreadsEnqueue)
{
    const auto held = std::make_shared<int>();
    std::atomic<bool> stop = false;
    std::atomic<int> ran = 0, sent = 0;
    std::vector<std::jthread> senders;
    for (int thread = 0; thread < 3; ++thread)
        senders.emplace_back(
            [&, weak = std::weak_ptr(this->host.actor)]
            {
                for (; !stop; ++sent)
                    if (const auto actor = weak.lock())
                        actor->enqueue([&ran, held] { ++ran; });
            });
    while (sent < 100)
        std::this_thread::yield();
    this->enqueue([this] { this->loop.quit(); });
    this->loop.run();

    this->host.end();
    const int before = ran;
    for (const int enough = sent + 100; sent < enough;)
        std::this_thread::yield();
    stop = true;
    senders.clear();

    EXPECT_GT(before, 0);
    EXPECT_EQ(ran, before);
    EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST_P(MainActorSuite, ACoroutineSleepsOffTheMainThreadAndEndsOnIt)
{
    using namespace platform;
    auto work = [](std::shared_ptr<MainActor> home, std::shared_ptr<Clock> clock,
                   std::uint64_t wait) -> Awaitable<bool>
    {
        co_await clock->sleep(wait);
        co_return home->isCurrent();
    };
    const auto executor = executorOf(this->host.actor);
    WorkerThread timers;
    const auto clock = systemClock(timers.executor());
    constexpr std::uint64_t millisecond = 1'000'000, hour = 3'600'000'000'000;

    bool finishedHere = false, cancelledHere = false;
    const auto cancelled = start<bool>(executor, work(this->host.actor, clock, hour),
                                       [&](Outcome<bool> end)
                                       {
                                           EXPECT_THROW((void)end.get(), CancellationError);
                                           cancelledHere = this->host.actor->isCurrent();
                                           this->loop.quit();
                                       });
    start<bool>(executor, work(this->host.actor, clock, millisecond),
                [&](Outcome<bool> end)
                {
                    finishedHere = end.get() && this->host.actor->isCurrent();
                    cancelled.cancel();
                });
    this->loop.run();

    EXPECT_TRUE(finishedHere);
    EXPECT_TRUE(cancelledHere);
}

TYPED_TEST_P(MainActorSuite, ACoroutineThatSleepsBeyondTheEndIsLetGo)
{
    using namespace platform;
    auto work = [](std::shared_ptr<Clock> clock, std::shared_ptr<int>) -> Awaitable<void>
    {
        co_await clock->sleep(1'000);
        ADD_FAILURE() << "went on without a main thread";
    };
    const auto clock = std::make_shared<ManualClock>();
    const auto held = std::make_shared<int>();
    start<void>(executorOf(this->host.actor), work(clock, held), [](Outcome<void>) { FAIL(); });
    this->enqueue([this] { this->loop.quit(); });
    this->loop.run();
    ASSERT_GT(held.use_count(), 1);

    this->host.end();
    std::thread([clock] { clock->advance(2000); }).join();

    EXPECT_EQ(held.use_count(), 1);
}

REGISTER_TYPED_TEST_SUITE_P(MainActorSuite, RunsWorkLaterAndInTheOrderOfTheCalls,
                            KeepsTheOrderOfEachOfManyThreads,
                            ADialogOpenedByAPieceHoldsUpNoneOfTheOthers,
                            GivesTheHostATurnBetweenPieces, DropsAtTheEndWhatHasNotRun,
                            EndsWhileThreadsEnqueue, ACoroutineSleepsOffTheMainThreadAndEndsOnIt,
                            ACoroutineThatSleepsBeyondTheEndIsLetGo);
