#include "Platform/Observation/CurrentValueSubject.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace platform;
using testing::ElementsAre;

namespace
{

using Values = std::vector<int>;

Publisher<int>::Handler into(Values& heard)
{
    return [&heard](const int& value) { heard.push_back(value); };
}

/// Two subscribers; what `first` does when it hears `1` is the test's.
struct Observation : testing::Test
{
    std::optional<CurrentValueSubject<int>> subject{std::in_place, 0};
    Values first, second;
    Subscription firstSubscription, secondSubscription;

    void observe(std::function<void()> atOne)
    {
        firstSubscription = subject->publisher().subscribe(
            [this, atOne](const int& value)
            {
                first.push_back(value);
                if (value == 1)
                    atOne();
            });
        secondSubscription = subject->publisher().subscribe(into(second));
    }
};

}  // namespace

TEST_F(Observation, EveryValueReachesEverySubscriberOnceAndInOrderWhoeverSendsIt)
{
    observe(
        [this]
        {
            subject->send(2);
            EXPECT_EQ(subject->value(), 2);
            subject->send(2);
            EXPECT_THAT(first, ElementsAre(0, 1)) << "a handler was called within its own call";
        });

    subject->send(1);

    EXPECT_THAT(first, ElementsAre(0, 1, 2, 2));
    EXPECT_THAT(second, ElementsAre(0, 1, 2, 2));
}

TEST_F(Observation, ASubscriberThatSendsInItsFirstCallIsToldAfterIt)
{
    Values order;
    auto early = subject->publisher().subscribe(into(second));

    auto late = subject->publisher().subscribe(
        [&](const int& value)
        {
            if (value < 2)
                subject->send(value + 1);
            order.push_back(value);
        });

    EXPECT_THAT(order, ElementsAre(0, 1, 2));
    EXPECT_THAT(second, ElementsAre(0, 1, 2));
}

TEST_F(Observation, WhoeverSubscribesDuringADeliveryStartsWithTheNewestValue)
{
    Values late;
    Subscription lateSubscription;
    observe(
        [&]
        {
            subject->send(2);
            lateSubscription = subject->publisher().subscribe(into(late));
            subject->send(3);
        });

    subject->send(1);

    EXPECT_THAT(late, ElementsAre(2, 3));
    EXPECT_THAT(second, ElementsAre(0, 1, 2, 3));
}

TEST_F(Observation, AHandlerMayEndItsOwnSubscriptionAndThoseOfOthers)
{
    observe(
        [this]
        {
            secondSubscription.cancel();
            firstSubscription = {};
            subject->send(2);
        });

    subject->send(1);
    subject->send(3);

    EXPECT_THAT(first, ElementsAre(0, 1));
    EXPECT_THAT(second, ElementsAre(0));
}

TEST_F(Observation, NothingIsDeliveredOnceTheSubjectIsGone)
{
    auto publisher = subject->publisher();
    observe(
        [this]
        {
            subject->send(2);
            subject.reset();
        });

    subject->send(1);

    EXPECT_THAT(first, ElementsAre(0, 1));
    EXPECT_THAT(second, ElementsAre(0));
    auto none = publisher.subscribe(into(second));
    EXPECT_THAT(second, ElementsAre(0));
}

TEST_F(Observation, ASubjectMayGoWhileItGreetsASubscriber)
{
    auto greeted = subject->publisher().subscribe(
        [this](const int& value)
        {
            first.push_back(value);
            subject->send(1);
            subject.reset();
        });

    EXPECT_THAT(first, ElementsAre(0));
}

TEST_F(Observation, WhatAHandlerHoldsIsReleasedWithItsSubscriptionOrItsSubject)
{
    auto held = std::make_shared<int>(0);
    const auto holding = [&] { return [held](const int&) { ++*held; }; };
    auto ended = subject->publisher().subscribe(holding());
    auto kept = subject->publisher().subscribe(holding());

    ended.cancel();
    subject->send(1);
    EXPECT_EQ(*held, 3);
    EXPECT_EQ(held.use_count(), 2);

    subject.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(Observation, AMappedPublisherFollowsAndAMutableHandlerKeepsItsMemory)
{
    std::vector<std::string> heard;
    auto subscription = subject->publisher()
                            .map([](int value) { return std::to_string(value * 10); })
                            .subscribe([&heard, count = 0](const std::string& text) mutable
                                       { heard.push_back(std::to_string(++count) + ":" + text); });

    subject->send(1);
    auto moved = std::move(subscription);
    subscription = {};
    subject->send(2);

    EXPECT_THAT(heard, ElementsAre("1:0", "2:10", "3:20"));
}
