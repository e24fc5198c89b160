#include "Platform/Networking/Progress.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

using platform::Progress;
using testing::ElementsAre;
using testing::Pair;

namespace
{

using Seen = std::vector<std::pair<std::int64_t, std::int64_t>>;

Progress::Observer into(Seen& seen)
{
    return [&seen](auto total, auto completed) { seen.emplace_back(total, completed); };
}

}  // namespace

TEST(Progress, TellsTheFirstCountsAndEveryChangeUntilTheSubscriptionIsDropped)
{
    Progress progress;
    progress.update(10, 1);
    Seen seen;
    {
        const auto subscription = progress.observe(into(seen));
        progress.update(10, 4);
        progress.update(10, 4);
        progress.update(12, 12);
    }
    progress.update(13, 13);

    EXPECT_THAT(seen, ElementsAre(Pair(10, 1), Pair(10, 4), Pair(12, 12)));
    EXPECT_EQ(progress.totalUnitCount(), 13);
    EXPECT_EQ(progress.completedUnitCount(), 13);
}

TEST(Progress, LetsAnObserverDropItselfAndTakeOnAnother)
{
    Progress progress;
    Seen first;
    Seen second;
    Progress::Subscription own;
    Progress::Subscription other;
    own = progress.observe(
        [&](auto total, auto completed)
        {
            first.emplace_back(total, completed);
            if (completed == 1)
            {
                other = progress.observe(into(second));
                own = {};
            }
        });

    progress.update(2, 1);
    progress.update(2, 2);

    EXPECT_THAT(first, ElementsAre(Pair(0, 0), Pair(2, 1)));
    EXPECT_THAT(second, ElementsAre(Pair(2, 1), Pair(2, 2)));
}

TEST(Progress, LosesNoChangeToAnObserverThatComesMeanwhile)
{
    for (int round = 0; round < 200; ++round)
    {
        Progress progress;
        Seen seen;
        std::thread work(
            [&]
            {
                for (int step = 1; step <= 20; ++step)
                    progress.update(20, step);
            });
        const auto subscription = progress.observe(into(seen));
        work.join();

        ASSERT_EQ(seen.back(), (Seen::value_type{20, 20}));
        for (std::size_t index = 1; index < seen.size(); ++index)
            ASSERT_GT(seen[index].second, seen[index - 1].second);
    }
}

TEST(Progress, MayEndBeforeItsSubscriptions)
{
    Seen seen;
    Progress::Subscription subscription;
    {
        Progress progress;
        subscription = progress.observe(into(seen));
    }
    subscription = {};

    EXPECT_THAT(seen, ElementsAre(Pair(0, 0)));
}
