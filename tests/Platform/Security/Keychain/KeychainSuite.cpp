#include "tests/Platform/Security/Keychain/KeychainSuite.hpp"

#include "tests/support/ManualClock.hpp"
#include "tests/support/SecretText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

using namespace platform;
using enum KeychainAttribute;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace
{

using Status = KeychainStatus;
constexpr auto genericPassword = KeychainClass::kSecClassGenericPassword;

KeychainQuery query(std::string service, std::string account)
{
    return {{kSecClass, genericPassword},
            {kSecAttrService, std::move(service)},
            {kSecAttrAccount, std::move(account)}};
}

/// Two programs of one user, "writer" and "reader", over one store.
class KeychainSuite : public testing::TestWithParam<KeychainImplementation>
{
protected:
    void SetUp() override
    {
        open_ = GetParam().prepare();
        if (!open_)
            GTEST_SKIP() << "this machine lacks what the keychain stands on";
        writer = keychainOf({.identifier = "writer"});
    }

    std::shared_ptr<StoreKeychain> keychainOf(KeychainProgram program)
    {
        auto surroundings = [program, clock = clock_]
        { return KeychainSurroundings{program, {nullptr, nullptr, clock}}; };
        return std::make_shared<StoreKeychain>(open_(), surroundings);
    }

    static Status put(Keychain& keychain, const KeychainQuery& item, std::string_view value)
    {
        return keychain.add(item.with(kSecValueData, bytes(value)));
    }

    /// The value, or the status in brackets.
    static std::string get(Keychain& keychain, const KeychainQuery& item)
    {
        const auto answer = keychain.copyMatching(item.with(kSecReturnData, true));
        if (answer.status != Status::success)
            return "[" + std::to_string(static_cast<int>(answer.status)) + "]";
        return text(answer.items.at(0).data);
    }

    std::shared_ptr<StoreKeychain> writer;

private:
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
    std::function<std::shared_ptr<ItemStore>()> open_;
};

TEST_P(KeychainSuite, AnItemComesBackAsItWas)
{
    std::string every;
    for (int i = 0; i < 256; ++i)
        every.push_back(static_cast<char>(i));
    const std::string values[] = {std::string(1, '\0'), every, "text\n", std::string(4 << 20, 'x')};
    const std::string keys[] = {"",
                                "Token",
                                std::string("a\0b", 3),
                                std::string(1, '\0'),
                                "%00",
                                "100% \"'\\;\n%00\\0",
                                "\xF0\x9F\x94\x91 \xEF\xBF\xBE \xC3\xA9",
                                std::string(1024, 'k')};

    for (const auto& value : values)
        EXPECT_EQ(put(*writer, query("values", std::to_string(value.size())), value),
                  Status::success);
    for (const auto& key : keys)
        EXPECT_EQ(put(*writer, query("keys " + key, key), "of " + key), Status::success);

    // What is sealed to a passcode is longer than what was given.
    KeychainItem sealed{.identity = {"s", "sealed", "writer"}, .data = {}};
    sealed.data.resize(keychainLimits::value + 200);
    EXPECT_EQ(writer->store()->add(sealed), Status::success);

    const auto later = keychainOf({.identifier = "writer"});
    for (const auto& value : values)
        EXPECT_EQ(get(*later, query("values", std::to_string(value.size()))), value);
    for (const auto& key : keys)
        EXPECT_EQ(get(*later, query("keys " + key, key)), "of " + key);
    for (const auto& key : keys)
        EXPECT_EQ(later->deleteMatching(query("keys " + key, key)), Status::success);
    for (const auto& key : keys)
        EXPECT_EQ(get(*writer, query("keys " + key, key)), "[-25300]");
}

TEST_P(KeychainSuite, AnItemIsTheOneItIsByServiceAccountGroupAndFlag)
{
    const auto item =
        query("service", "account")
            .with(kSecAttrAccessGroup, std::string("group.one"))
            .with(kSecAttrAccessible, KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock);
    ASSERT_EQ(put(*writer, item, "first"), Status::success);

    const auto flagged = item.with(kSecAttrSynchronizable, true);
    const std::pair<KeychainQuery, Status> cases[] = {
        {item, Status::duplicateItem},
        {item.with(kSecAttrAccessible, KeychainAccessible::kSecAttrAccessibleWhenUnlocked),
         Status::duplicateItem},
        {item.with(kSecAttrSynchronizable, false), Status::duplicateItem},
        {item.with(kSecAttrService, std::string("service2")), Status::success},
        {item.with(kSecAttrAccount, std::string("Account")), Status::success},
        {item.with(kSecAttrAccessGroup, std::string("group.two")), Status::success},
        {flagged, Status::success},
        {flagged, Status::duplicateItem},
    };
    for (const auto& [other, expected] : cases)
        EXPECT_EQ(put(*writer, other, "second"), expected) << &other - &cases[0].first;

    EXPECT_EQ(get(*writer, item), "first");
    EXPECT_EQ(get(*writer, flagged), "second");
}

TEST_P(KeychainSuite, AQueryMeansWhatItNamesAndAnyOfWhatItLeavesOut)
{
    using enum KeychainAccessible;
    const auto base = KeychainQuery{{kSecClass, genericPassword}};
    const auto all =
        base.with(kSecMatchLimit, KeychainMatchLimit::kSecMatchLimitAll).with(kSecReturnData, true);
    // Not in the order in which they are to be found.
    put(*writer, query("t", "a"), "3");
    put(*writer, query("s", "b").with(kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock), "2");
    put(*writer, query("s", "a").with(kSecAttrAccessible, kSecAttrAccessibleWhenUnlocked), "1");
    put(*writer, query("s", "a").with(kSecAttrSynchronizable, true), "4");
    const auto found = [&](const KeychainQuery& asked)
    {
        std::string values;
        for (const auto& item : writer->copyMatching(asked).items)
            values += text(item.data);
        return values;
    };

    EXPECT_EQ(found(all), "123");
    EXPECT_EQ(found(all.with(kSecAttrService, std::string("s"))), "12");
    EXPECT_EQ(found(all.with(kSecAttrAccount, std::string("a"))), "13");
    EXPECT_EQ(found(all.with(kSecAttrSynchronizable, true)), "4");
    EXPECT_EQ(found(all.with(kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock)), "2");
    EXPECT_EQ(found(all.with(kSecMatchLimit, KeychainMatchLimit::kSecMatchLimitOne)), "1");
    EXPECT_EQ(found(all.with(kSecAttrAccessControl,
                             writer->makeAccessControl(kSecAttrAccessibleWhenUnlocked,
                                                       AccessControlFlag::userPresence))),
              "");
    EXPECT_EQ(found(all.with(kSecAttrAccount, std::string("A"))), "");

    EXPECT_EQ(writer->deleteMatching(base.with(kSecAttrService, std::string("s"))),
              Status::success);
    EXPECT_EQ(found(all), "3");
    EXPECT_EQ(found(all.with(kSecAttrSynchronizable, true)), "4");
    EXPECT_EQ(writer->deleteMatching(base.with(kSecAttrService, std::string("s"))),
              Status::itemNotFound);
}

TEST_P(KeychainSuite, HandsOutWhatWasAskedFor)
{
    put(*writer, query("s", "a"), "value");
    const auto asked = [&](bool data, bool attributes)
    {
        const auto answer = writer->copyMatching(
            query("s", "a").with(kSecReturnData, data).with(kSecReturnAttributes, attributes));
        EXPECT_EQ(answer.status, Status::success);
        return text(answer.items.at(0).data) + "|" + answer.items.at(0).identity.account;
    };

    EXPECT_EQ(asked(true, true), "value|a");
    EXPECT_EQ(asked(true, false), "value|");
    EXPECT_EQ(asked(false, true), "|a");
    EXPECT_EQ(asked(false, false), "|");
}

TEST_P(KeychainSuite, WhatIsIllFormedIsRefused)
{
    const auto item = query("s", "a");
    const auto limited = item.with(kSecMatchLimit, KeychainMatchLimit::kSecMatchLimitOne);
    const auto both =
        item.with(kSecAttrAccessible, KeychainAccessible::kSecAttrAccessibleWhenUnlocked)
            .with(kSecAttrAccessControl,
                  writer->makeAccessControl(KeychainAccessible::kSecAttrAccessibleWhenUnlocked,
                                            AccessControlFlag::userPresence));

    for (const auto& broken :
         {item.with(kSecAttrAccount, std::string(1025, 'k')),
          item.with(kSecAttrAccount, std::string("\xFF")),
          item.with(kSecAttrService, std::string(4097, 's')), item.with(kSecAttrService, true),
          item.with(kSecAttrAccessible, static_cast<KeychainAccessible>(3)), both,
          item.with(kSecAttrAccessControl, std::shared_ptr<const AccessControl>()),
          KeychainQuery{{kSecAttrService, std::string("s")}}})
    {
        EXPECT_EQ(put(*writer, broken, "v"), Status::parameter);
        EXPECT_EQ(get(*writer, broken), "[-50]");
        EXPECT_EQ(writer->deleteMatching(broken), Status::parameter);
    }
    EXPECT_EQ(writer->add(item), Status::parameter) << "no value";
    EXPECT_EQ(put(*writer, item, ""), Status::parameter);
    EXPECT_EQ(put(*writer, item, std::string((4 << 20) + 1, 'x')), Status::parameter);
    EXPECT_EQ(put(*writer, limited, "v"), Status::parameter);
    EXPECT_EQ(writer->deleteMatching(limited), Status::parameter);
    EXPECT_EQ(get(*writer, item), "[-25300]");
}

TEST_P(KeychainSuite, TwoProgramsShareWhatTheirGroupsSay)
{
    const auto reader = keychainOf({.identifier = "reader", .accessGroups = {"team.shared"}});
    const auto member =
        keychainOf({.identifier = "z.member", .accessGroups = {"team.shared", "team.shared"}});
    const auto closed = keychainOf({.identifier = "closed", .opensSharedGroups = false});
    const auto item = query("s", "a");
    const auto in = [&](std::string group)
    { return item.with(kSecAttrAccessGroup, std::move(group)); };
    put(*writer, item, "own");
    put(*writer, in("group.everyone"), "open");
    put(*member, in("team.shared"), "team");

    EXPECT_EQ(get(*writer, item), "own");
    EXPECT_EQ(get(*writer, in("writer")), "own");
    EXPECT_EQ(get(*reader, item), "team") << "listed groups are looked into without being named";
    EXPECT_EQ(get(*reader, in("writer")), "[-34018]");
    EXPECT_EQ(get(*writer, in("team.shared")), "[-34018]");
    EXPECT_EQ(get(*reader, in("group.everyone")), "open");
    EXPECT_EQ(get(*closed, in("group.everyone")), "[-34018]");
    EXPECT_EQ(get(*closed, item), "[-25300]");
    EXPECT_EQ(put(*closed, in("group.everyone"), "v"), Status::missingEntitlement);
    EXPECT_EQ(writer->deleteMatching(in("team.shared")), Status::missingEntitlement);
    const auto nosy = keychainOf({.identifier = std::string(internalAccessGroup),
                                  .accessGroups = {std::string(internalAccessGroup)}});
    EXPECT_EQ(get(*nosy, in(std::string(internalAccessGroup))), "[-34018]");

    put(*member, item, "member's");
    EXPECT_EQ(get(*member, item), "member's") << "the program's own group comes first";
    const KeychainQuery anything{{kSecClass, genericPassword}};
    for (const auto& query : {item, anything})
    {
        const auto all =
            member->copyMatching(query.with(kSecMatchLimit, KeychainMatchLimit::kSecMatchLimitAll)
                                     .with(kSecReturnAttributes, true));
        ASSERT_EQ(all.items.size(), 2u);
        EXPECT_EQ(all.items[0].identity.accessGroup, "z.member");
        EXPECT_EQ(all.items[1].identity.accessGroup, "team.shared");
    }
}

TEST_P(KeychainSuite, AStagedDeleteAndAddAreOneStep)
{
    using enum KeychainAccessible;
    const auto other = keychainOf({.identifier = "writer"});
    const auto item = query("s", "a");
    const auto asFirst = item.with(kSecAttrAccessible, kSecAttrAccessibleWhenUnlocked);
    const auto asSecond = item.with(kSecAttrAccessible, kSecAttrAccessibleAfterFirstUnlock);
    const auto staged =
        [&](const KeychainQuery& old, const KeychainQuery& added, std::string_view value)
    {
        const auto scope = writer->stage();
        const auto deleted = scope->deleteMatching(old);
        const auto between = get(*other, item);
        const auto status = scope->add(added.with(kSecValueData, bytes(value)));
        return std::tuple(deleted, between, status, get(*other, item));
    };
    using Row = std::tuple<Status, std::string, Status, std::string>;

    EXPECT_EQ(staged(item, asFirst, "1"),
              Row(Status::itemNotFound, "[-25300]", Status::success, "1"));
    EXPECT_EQ(staged(asFirst, asFirst, "2"), Row(Status::success, "1", Status::success, "2"));
    EXPECT_EQ(staged(item, asSecond, "3"), Row(Status::success, "2", Status::success, "3"))
        << "the new item may differ in what is not its identity";
    EXPECT_EQ(staged(asFirst, asFirst, "4"),
              Row(Status::itemNotFound, "3", Status::duplicateItem, "3"));
    EXPECT_EQ(staged(asSecond, asSecond, ""),
              Row(Status::success, "3", Status::parameter, "[-25300]"))
        << "a refused add carries out the delete alone";

    put(*writer, asFirst, "5");
    EXPECT_EQ(writer->stage()->deleteMatching(item), Status::success);
    EXPECT_EQ(get(*other, item), "5") << "a scope that ends without an add changes nothing";
    EXPECT_EQ(writer->stage()->deleteMatching(query("s", "b")), Status::itemNotFound);
}

TEST_P(KeychainSuite, AChangeOfOneItemHasNoOtherInBetween)
{
    const KeychainIdentity counter{
        .service = "s", .account = "count", .accessGroup = std::string(internalAccessGroup)};
    const auto addOne = [](const SecretBytes* stored) -> std::optional<SecretBytes>
    { return bytes(std::to_string((stored ? std::stoi(text(*stored)) : 0) + 1)); };
    std::vector<std::jthread> processes;
    for (int i = 0; i < 3; ++i)
        processes.emplace_back(
            [&]
            {
                const auto store = keychainOf({.identifier = "writer"})->store();
                for (int j = 0; j < 10; ++j)
                    EXPECT_EQ(store->update(counter, addOne), Status::success);
            });
    processes.clear();

    const auto store = writer->store();
    std::string last;
    const auto look = [&](const SecretBytes* stored) -> std::optional<SecretBytes>
    {
        last = stored ? text(*stored) : "none";
        return std::nullopt;
    };
    EXPECT_EQ(store->update(counter, look), Status::success);
    EXPECT_EQ(last, "30");
    const auto empty = [](const SecretBytes*) { return std::optional<SecretBytes>(SecretBytes()); };
    EXPECT_EQ(store->update(counter, empty), Status::success);
    EXPECT_EQ(store->update(counter, look), Status::success);
    EXPECT_EQ(last, "none");
    EXPECT_EQ(store->update(counter, empty), Status::success);
}

INSTANTIATE_TEST_SUITE_P(, KeychainSuite,
                         testing::Values(memoryImplementation(), embeddedImplementation(),
                                         secretServiceImplementation()),
                         [](const auto& each) { return each.param.name; });

}  // namespace
