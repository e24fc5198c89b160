#include "Adapters/Qt/QtMainActor.hpp"

#include "tests/Adapters/MainActorSuite.hpp"

#include <QtCore/QCoreApplication>
#include <QtCore/QEventLoop>
#include <QtCore/QTimer>

#include <optional>

namespace
{

struct QtHost
{
    struct Loop
    {
        void run() { loop.exec(); }
        void quit() { loop.quit(); }

        QEventLoop loop;
    };

    void post(std::function<void()> work)
    {
        QMetaObject::invokeMethod(&*application, std::move(work), Qt::QueuedConnection);
    }
    void end()
    {
        application.reset();
        actor.reset();
    }

    int count = 1;
    char name[5] = "test";
    char* arguments[2] = {name, nullptr};
    std::optional<QCoreApplication> application{std::in_place, count, arguments};
    std::shared_ptr<platform::MainActor> actor = qt::mainActor();
};

INSTANTIATE_TYPED_TEST_SUITE_P(Qt, MainActorSuite, QtHost);

TEST(QtMainActor, EachApplicationHasOneWhichOutlivesItInSilence)
{
    std::shared_ptr<platform::MainActor> first;
    {
        const QtHost host;
        first = host.actor;
        EXPECT_EQ(qt::mainActor(), first);
    }
    const auto held = std::make_shared<int>();
    first->enqueue([held] { FAIL(); });
    std::thread([&] { first->enqueueAll({[held] { FAIL(); }}); }).join();
    EXPECT_EQ(held.use_count(), 1);

    const QtHost host;
    QtHost::Loop loop;
    host.actor->enqueue([&] { loop.quit(); });
    first->enqueue([held] { FAIL(); });
    loop.run();
    EXPECT_NE(host.actor, first);
}

TEST(QtMainActor, AThreadThatHoldsItMayEnqueueWhileTheApplicationEnds)
{
    for (int round = 0; round < 20; ++round)
    {
        std::optional<QtHost> host(std::in_place);
        std::atomic<int> sent = 0;
        std::jthread sender(
            [&sent, actor = host->actor](std::stop_token stop)
            {
                for (; !stop.stop_requested(); ++sent)
                    actor->enqueue([] {});
            });
        while (sent < 10)
            std::this_thread::yield();
        host.reset();
    }
}

TEST(QtMainActorDeathTest, NeedsAnApplicationAndItsThread)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH((void)qt::mainActor(), "needs a QCoreApplication");
    EXPECT_DEATH(
        {
            const QtHost host;
            std::thread([] { (void)qt::mainActor(); }).join();
        },
        "is called on its thread");
}

}  // namespace
