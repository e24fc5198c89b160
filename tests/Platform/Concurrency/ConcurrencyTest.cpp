#include "Platform/Concurrency/Actor.hpp"
#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Concurrency/RunLoop.hpp"
#include "Platform/Concurrency/Task.hpp"
#include "Platform/Concurrency/WorkerThread.hpp"
#include "tests/support/ManualClock.hpp"

#include <gtest/gtest.h>
#include <boost/asio/detached.hpp>
#include <boost/asio/thread_pool.hpp>

#include <atomic>
#include <future>
#include <memory>

using namespace platform;

namespace
{

Awaitable<int> waiting(std::shared_ptr<Clock> clock, int result)
{
    co_await clock->sleep(1'000'000'000);
    co_return result;
}

struct Concurrency : testing::Test
{
    std::shared_ptr<RunLoop> loop = std::make_shared<RunLoop>();
    Executor main = executorOf(loop);
    WorkerThread worker;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
};

}  // namespace

TEST_F(Concurrency, WorkOnAnActorRunsThereAndItsCallerContinuesAtHome)
{
    struct Places
    {
        bool workOnMain = true;
        bool callerOnMain = false;
    };
    auto work = [](std::shared_ptr<RunLoop> home) -> Awaitable<bool>
    { co_return home->isCurrent(); };
    auto caller = [](Actor actor, Awaitable<bool> inner,
                     std::shared_ptr<RunLoop> home) -> Awaitable<Places>
    {
        Places places;
        places.workOnMain = co_await actor.run(std::move(inner));
        places.callerOnMain = home->isCurrent();
        co_return places;
    };

    const auto places = runToEnd(loop, caller(Actor(worker.executor()), work(loop), loop));

    EXPECT_FALSE(places.workOnMain);
    EXPECT_TRUE(places.callerOnMain);
}

TEST_F(Concurrency, CancellingOneAwaiterLeavesTheTaskAndTheOthersAlone)
{
    auto task = Task<int>::start(main, waiting(clock, 5));
    auto patient = Task<int>::start(main, task.value());
    auto hasty = Task<int>::start(main, task.value());
    loop->runReady();

    hasty.cancel();
    loop->runReady();
    EXPECT_TRUE(hasty.finished());
    EXPECT_FALSE(task.finished());
    clock->advance(1'000'000'000);

    EXPECT_THROW(runToEnd(loop, hasty.value()), CancellationError);
    EXPECT_EQ(runToEnd(loop, patient.value()), 5);
}

TEST_F(Concurrency, ASleepEndsWithItsTimeOrWithItsCaller)
{
    auto slept = Task<int>::start(main, waiting(clock, 1));
    auto cancelled = Task<int>::start(main, waiting(clock, 2));
    auto cancelledBefore = Task<int>::start(main, waiting(clock, 3));
    cancelledBefore.cancel();
    loop->runReady();
    clock->advance(999'999'999);
    loop->runReady();
    EXPECT_FALSE(slept.finished());

    cancelled.cancel();
    loop->runReady();
    EXPECT_EQ(clock->timers(), 1u);
    clock->advance(1);

    EXPECT_EQ(runToEnd(loop, slept.value()), 1);
    EXPECT_THROW(runToEnd(loop, cancelled.value()), CancellationError);
    EXPECT_THROW(runToEnd(loop, cancelledBefore.value()), CancellationError);
}

TEST_F(Concurrency, TheSystemClockSleepsAndIsCancelledAcrossThreads)
{
    auto system = systemClock(worker.executor());
    auto sleep = [](std::shared_ptr<Clock> ofClock, std::uint64_t time) -> Awaitable<void>
    { co_await ofClock->sleep(time); };

    EXPECT_NO_THROW(runToEnd(loop, sleep(system, 1)));
    // The longest wait there is must neither wrap nor end.
    auto endless = Task<void>::start(main, sleep(system, UINT64_MAX));
    loop->runReady();
    EXPECT_FALSE(endless.finished());
    endless.cancel();
    EXPECT_THROW(runToEnd(loop, endless.value()), CancellationError);
}

// Completion on one thread meets cancellation from another: each call ends once, and no frame is
// used after its end. The sanitizers judge.
TEST_F(Concurrency, CancellationMeetsCompletion)
{
    Actor actor(worker.executor());
    auto hop = [](Actor there, int rounds) -> Awaitable<int>
    {
        auto nothing = [](int value) -> Awaitable<int> { co_return value; };
        int sum = 0;
        for (int i = 0; i < rounds; ++i)
        {
            co_await checkCancellation();
            sum += co_await there.run(nothing(1));
        }
        co_return sum;
    };
    int ended = 0;
    constexpr int calls = 2'000;
    for (int i = 0; i < calls; ++i)
    {
        auto task =
            start<int>(main, actor.run(hop(actor, i % 7)), [&ended](Outcome<int>) { ++ended; });
        if (i % 3 == 0)
            loop->runReady();
        std::thread canceller([task] { task.cancel(); });
        loop->runReady();
        canceller.join();
    }

    loop->runUntil([&] { return ended == calls; });

    loop->runReady();
    EXPECT_EQ(ended, calls);
}

// Callers on several threads: the actor may answer while the call is still being made.
TEST_F(Concurrency, CallersOnAPoolOfThreadsAreResumedOnlyWhenTheyWait)
{
    Actor actor(worker.executor());
    boost::asio::thread_pool pool(3);
    std::atomic<int> sum = 0;
    auto calling = [](Actor there, std::atomic<int>* into) -> Awaitable<void>
    {
        auto one = []() -> Awaitable<int> { co_return 1; };
        for (int i = 0; i < 500; ++i)
            *into += co_await there.run(one());
    };

    for (int i = 0; i < 4; ++i)
        boost::asio::co_spawn(pool, calling(actor, &sum), boost::asio::detached);
    pool.join();
    worker.stop();  // its last resumption may still be waking a thread of the pool

    EXPECT_EQ(sum, 2000);
}

TEST_F(Concurrency, ALoopThatIsGoneDropsWhatWaitsAndWhatComes)
{
    auto witness = std::make_shared<int>(0);
    const std::weak_ptr<int> held = witness;
    auto work = [](std::shared_ptr<Clock> time, std::shared_ptr<int>) -> Awaitable<void>
    { co_await time->sleep(1); };
    const std::weak_ptr<RunLoop> gone = loop;
    auto sleeping = Task<void>::start(main, work(clock, std::move(witness)));
    loop->runReady();

    // The end of the sleep waits in the loop's queue when the loop goes.
    clock->advance(1);
    loop.reset();

    EXPECT_TRUE(gone.expired());
    EXPECT_TRUE(held.expired());
    sleeping.cancel();
    boost::asio::post(main, [] { FAIL(); });
}

TEST_F(Concurrency, StoppingALoopDoesNotBreakOffWorkThatIsRunToItsEnd)
{
    auto stopping = [](std::shared_ptr<RunLoop> home, Actor there) -> Awaitable<int>
    {
        home->stop();
        auto answer = []() -> Awaitable<int> { co_return 42; };
        co_return co_await there.run(answer());
    };

    EXPECT_EQ(runToEnd(loop, stopping(loop, Actor(worker.executor()))), 42);
    loop->run();
}

TEST_F(Concurrency, ResultsOfOneBatchArriveTogetherInOrder)
{
    std::vector<int> arrived;
    {
        const MainActorBatch batch;
        const auto others = executorOf(std::make_shared<RunLoop>());
        for (int i = 0; i < 3; ++i)
            boost::asio::post(main, [&arrived, i] { arrived.push_back(i); });
        boost::asio::post(others, [] { FAIL() << "its loop is gone"; });
        EXPECT_EQ(loop->runReady(), 0u);
    }

    EXPECT_EQ(loop->runReady(), 3u);
    EXPECT_EQ(arrived, (std::vector<int>{0, 1, 2}));
}

TEST(WorkerThread, MayEndFromWithin)
{
    auto worker = std::make_shared<WorkerThread>();
    auto executor = worker->executor();
    std::promise<void> handedOver;
    std::promise<void> ended;

    boost::asio::post(executor,
                      [held = std::move(worker), &handedOver, &ended]() mutable
                      {
                          handedOver.get_future().wait();
                          held.reset();
                          ended.set_value();
                      });
    handedOver.set_value();

    EXPECT_EQ(ended.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
}
