#include "tests/Platform/Security/SecretService/SecretServiceStoreForTest.hpp"

#include <thread>

using namespace platform;
using enum KeychainStatus;

namespace
{

std::string everyByte(std::size_t size)
{
    std::string value(size, '\0');
    for (std::size_t index = 0; index < size; ++index)
        value[index] = static_cast<char>(index * 131 + index / 256);
    return value;
}

TEST_F(SecretServiceTest, GivesBackAnyBytesUnderAnyKey)
{
    SecretServiceItemStore store(configuration());
    const std::string keys[] = {
        "",  "plain",       std::string("with\0NUL", 8),     "%00",
        "%", "line\nbreak", "\xF0\x9F\x94\x91 \xEF\xBF\xBE", std::string(1024, '\0')};

    for (const auto& key : keys)
    {
        EXPECT_EQ(valueOf(store, key), "[-25300]");
        EXPECT_EQ(store.add(item(key, everyByte(1000) + key)), success);
        EXPECT_EQ(store.add(item(key, "another")), duplicateItem);
    }

    SecretServiceItemStore another(configuration());
    for (const auto& key : keys)
        EXPECT_EQ(valueOf(another, key), everyByte(1000) + key);
    const auto large = everyByte(keychainLimits::value + 200);
    EXPECT_EQ(store.add(item("large", large)), success);
    EXPECT_EQ(valueOf(another, "large"), large);
    EXPECT_TRUE(diagnostics_.taken().empty());
}

TEST_F(SecretServiceTest, FindsWhatThePatternSaysInItsOrder)
{
    SecretServiceItemStore store(configuration());
    const auto add = [&](std::string service, std::string account, std::string group, bool travels)
    {
        auto one = item(account, "v");
        one.identity = {service, account, group, travels};
        ASSERT_EQ(store.add(one), success);
    };
    add("s", "b", "g1", false);
    add("s", "a", "g1", false);
    add("s", "a", "g2", false);
    add("s", "a", "g1", true);
    add("t", "a", "g1", false);
    const auto found = [&](const ItemPattern& pattern, ItemContent content, std::size_t limit)
    {
        std::string all;
        for (const auto& one : store.copyMatching(pattern, content, limit).items)
            all += one.identity.accessGroup + one.identity.service + one.identity.account +
                   (one.identity.synchronizable ? "+" : "") + text(one.data) + " ";
        return all;
    };
    const ItemPattern all{.service = {},
                          .account = {},
                          .accessGroups = {"g2", "g1", "g2"},
                          .accessible = {},
                          .accessControl = {}};
    auto ofAccount = all;
    ofAccount.service = "s";
    ofAccount.account = "a";
    auto other = all;
    other.accessible = KeychainAccessible::kSecAttrAccessibleWhenUnlocked;
    auto travelling = all;
    travelling.synchronizable = true;

    EXPECT_EQ(found(all, ItemContent::attributes, 9), "g2sa g1sa g1sb g1ta ");
    EXPECT_EQ(found(all, ItemContent::attributesAndData, 2), "g2sav g1sav ");
    EXPECT_EQ(found(ofAccount, ItemContent::attributesAndData, 9), "g2sav g1sav ");
    EXPECT_EQ(found(travelling, ItemContent::attributes, 9), "g1sa+ ");
    EXPECT_EQ(store.copyMatching(other, ItemContent::attributes, 9).status, itemNotFound);
    EXPECT_EQ(store.deleteMatching(other), itemNotFound);
    EXPECT_EQ(store.deleteMatching(ofAccount), success);
    EXPECT_EQ(found(all, ItemContent::attributes, 9), "g1sb g1ta ");
}

TEST_F(SecretServiceTest, ReplacesInPlaceAndRefusesWhatItMayNotDelete)
{
    SecretServiceItemStore store(configuration());
    auto changed = item("k", "two");
    changed.accessible = KeychainAccessible::kSecAttrAccessibleWhenUnlocked;

    EXPECT_EQ(store.replace(patternOf(item("k", "")), item("k", "one")), success);
    EXPECT_EQ(store.replace(patternOf(changed), changed), duplicateItem);
    EXPECT_EQ(valueOf(store, "k"), "one");
    EXPECT_EQ(store.replace(patternOf(item("k", "")), item("k", "new")), success);
    EXPECT_EQ(valueOf(store, "k"), "new");

    EXPECT_EQ(store.replace(patternOf(item("k", "")), changed), success);
    EXPECT_EQ(valueOf(store, "k"), "[-25300]");
    EXPECT_EQ(GBusForTest(service_->busAddress()).find({{"account", "k"}}).size(), 1U);
}

TEST_F(SecretServiceTest, UpdatesOneItemAsAStep)
{
    SecretServiceItemStore store(configuration());
    const auto identity = item("k", "").identity;
    const auto to = [&](std::optional<std::string> value, std::string expected)
    {
        return store.update(identity,
                            [=](const SecretBytes* stored) -> std::optional<SecretBytes>
                            {
                                EXPECT_EQ(stored ? text(*stored) : "none", expected);
                                return value ? std::optional(bytes(*value)) : std::nullopt;
                            });
    };

    EXPECT_EQ(to("", "none"), success);
    EXPECT_EQ(store.add(item("k", "1")), success);
    EXPECT_EQ(to("2", "1"), success);
    EXPECT_EQ(to({}, "2"), success);
    EXPECT_EQ(valueOf(store, "k"), "2");
    EXPECT_EQ(to("", "2"), success);
    EXPECT_EQ(to({}, "none"), success);
}

TEST_F(SecretServiceTest, TakesTheNewestOfDuplicatesAndRemovesTheOthersWithTheNextWrite)
{
    SecretServiceItemStore store(configuration());
    const GBusForTest bus(service_->busAddress());
    GBusForTest::Attributes attributes{{"xdg:schema", "net.ostra.Tessera.Item"},
                                       {"service", "a service"},
                                       {"account", "k"},
                                       {"accessGroup", "a group"},
                                       {"synchronizable", "false"},
                                       {"accessible", "2"},
                                       {"accessControl", "0"}};
    for (const char* value : {"1:2:0:b25l", "1:2:0:dHdv", "1:2:0:c2l4"})
        bus.store("default", attributes, value, false);

    const auto value = valueOf(store, "k");
    EXPECT_EQ(valueOf(store, "k"), value);
    EXPECT_EQ(store.add(item("k", "x")), duplicateItem);
    EXPECT_EQ(valueOf(store, "k"), value);
    EXPECT_EQ(store.replace(patternOf(item("k", "")), item("k", "new")), success);

    EXPECT_EQ(valueOf(store, "k"), "new");
    EXPECT_EQ(bus.find(attributes).size(), 1U);
    bus.store("default", attributes, "1:2:0:b25l", false);
    EXPECT_EQ(store.deleteMatching(patternOf(item("k", ""))), success);
    EXPECT_EQ(bus.find(attributes).size(), 0U);
}

TEST_F(SecretServiceTest, ManyWritersAndReadersNeverSeeAnItemTwiceOrLosePartOfIt)
{
    SecretServiceItemStore first(configuration());
    SecretServiceItemStore second(configuration());
    constexpr int rounds = 20;
    const auto count = [](const SecretBytes* stored)
    { return bytes(std::to_string((stored ? std::stoi(text(*stored)) : 0) + 1)); };

    std::vector<std::jthread> threads;
    for (auto* store : {&first, &first, &second, &second})
        threads.emplace_back(
            [&, store]
            {
                for (int round = 0; round < rounds; ++round)
                {
                    EXPECT_EQ(store->update(item("count", "").identity, count), success);
                    EXPECT_EQ(store->replace(patternOf(item("k", "")), item("k", "same")), success);
                    EXPECT_EQ(valueOf(*store, "k"), "same");
                }
            });
    threads.clear();

    EXPECT_EQ(first
                  .copyMatching({.service = "a service",
                                 .account = "count",
                                 .accessGroups = {"a group"},
                                 .accessible = {},
                                 .accessControl = {}},
                                ItemContent::attributesAndData, 1)
                  .items.at(0)
                  .data,
              bytes(std::to_string(4 * rounds)));
    const GBusForTest bus(service_->busAddress());
    EXPECT_EQ(bus.find({{"account", "k"}}).size(), 1U);
    EXPECT_EQ(bus.find({{"account", "count"}}).size(), 1U);
}

}  // namespace
