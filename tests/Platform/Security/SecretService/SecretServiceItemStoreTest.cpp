#include "tests/Platform/Security/SecretService/SecretServiceStoreForTest.hpp"

#include <thread>

using namespace platform;
using enum KeychainStatus;

namespace
{

TEST_F(SecretServiceTest, TakesTheNewestOfDuplicatesAndRemovesTheOthersWithTheNextWrite)
{
    SecretServiceItemStore store(configuration());
    const GBusForTest bus(service_->busAddress());
    const auto attributes = attributesOf("k");
    for (const char* value : {"1:2:0:b25l", "1:2:0:dHdv", "1:2:0:c2l4"})
        bus.store("default", attributes, value, false);

    const auto value = valueOf(store, "k");
    EXPECT_EQ(valueOf(store, "k"), value);
    EXPECT_EQ(store.add(item("k", "x")), duplicateItem);
    EXPECT_EQ(valueOf(store, "k"), value);
    EXPECT_EQ(store.replace(patternOf(item("k", "")), item("k", "new")), success);

    EXPECT_EQ(valueOf(store, "k"), "new");
    EXPECT_EQ(bus.find(attributes).size(), 1U);
    auto changed = item("k", "in place");
    changed.accessible = KeychainAccessible::kSecAttrAccessibleWhenUnlocked;
    EXPECT_EQ(store.replace(patternOf(item("k", "")), changed), success);
    EXPECT_EQ(bus.find({{"account", "k"}}).size(), 1U);
    EXPECT_EQ(store.replace(patternOf(changed), item("k", "")), success);
    bus.store("default", attributes, "1:2:0:b25l", false);
    EXPECT_EQ(store.deleteMatching(patternOf(item("k", ""))), success);
    EXPECT_EQ(bus.find(attributes).size(), 0U);
}

TEST_F(SecretServiceTest, ManyWritersAndReadersNeverSeeAnItemTwiceOrLosePartOfIt)
{
    SecretServiceItemStore first(configuration());
    SecretServiceItemStore second(configuration());
    std::vector<std::jthread> threads;
    for (auto* store : {&first, &first, &second, &second})
        threads.emplace_back(
            [store]
            {
                for (int round = 0; round < 20; ++round)
                {
                    EXPECT_EQ(store->replace(patternOf(item("k", "")), item("k", "same")), success);
                    EXPECT_EQ(valueOf(*store, "k"), "same");
                }
            });
    threads.clear();

    EXPECT_EQ(GBusForTest(service_->busAddress()).find({{"account", "k"}}).size(), 1U);
}

}  // namespace
