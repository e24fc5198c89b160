#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include "tests/support/ManualClock.hpp"
#include "tests/support/MemoryItemStore.hpp"
#include "tests/support/SecretText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace platform;
using enum KeychainAttribute;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

class StoreKeychainTest : public testing::Test
{
protected:
    KeychainQuery item = {{kSecClass, KeychainClass::kSecClassGenericPassword},
                          {kSecAttrService, std::string("service")},
                          {kSecAttrAccount, std::string("account")}};
    std::shared_ptr<MemoryItemStore> store = std::make_shared<MemoryItemStore>();
    KeychainProgram program{.identifier = "program"};
    std::vector<std::string> causes;
    StoreKeychain keychain{store, [this]
                           {
                               const auto sink = [this](const Diagnostic& one)
                               { causes.push_back(one.cause); };
                               return KeychainSurroundings{program, {nullptr, sink, clock_}};
                           }};

private:
    std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
};

TEST_F(StoreKeychainTest, TellsWhatIsWrongWithAnOperationAndNotItsValues)
{
    const auto longKey = item.with(kSecAttrAccount, std::string(1025, 'k'));
    const auto foreign = item.with(kSecAttrAccessGroup, std::string("another"));

    keychain.copyMatching(longKey);
    keychain.deleteMatching(foreign);
    keychain.add(item.with(kSecValueData, bytes(std::string((4 << 20) + 1, 'v'))));
    keychain.stage()->deleteMatching(item.with(kSecAttrService, std::string("\xFF")));

    ASSERT_EQ(causes.size(), 4u);
    EXPECT_THAT(causes[0], AllOf(HasSubstr("the key is too long"), Not(HasSubstr("kkk"))));
    EXPECT_THAT(causes[1], AllOf(HasSubstr("access group"), Not(HasSubstr("another"))));
    EXPECT_THAT(causes[2], AllOf(HasSubstr("the value is too long"), Not(HasSubstr("vvv"))));
    EXPECT_THAT(causes[3], HasSubstr("the service is not UTF-8"));
}

TEST_F(StoreKeychainTest, AnItemThatCannotBeProtectedLeavesNoneAndOneThatCannotBeJudgedTheOld)
{
    const auto sealed =
        item.with(kSecAttrAccessControl,
                  keychain.makeAccessControl(
                      KeychainAccessible::kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly,
                      AccessControlFlag::devicePasscode));
    const KeychainIdentity record{.service = "net.ostra.Tessera.passcode",
                                  .account = "record",
                                  .accessGroup = std::string(internalAccessGroup)};
    const KeychainIdentity identity{"service", "account", "program", false};
    const auto write = [&]
    {
        store->put({.identity = identity, .data = bytes("old")});
        const auto scope = keychain.stage();
        EXPECT_EQ(scope->deleteMatching(item), KeychainStatus::success);
        return scope->add(sealed.with(kSecValueData, bytes("new")));
    };

    EXPECT_EQ(write(), KeychainStatus::notAvailable) << "no passcode is set";
    EXPECT_FALSE(store->items().contains(identity));

    store->put({.identity = record, .data = bytes("no record")});
    EXPECT_EQ(write(), KeychainStatus::damaged) << "whether one is set cannot be read";
    EXPECT_TRUE(store->items().contains(identity));
}

TEST_F(StoreKeychainTest, AScopeGoesByTheProgramOfItsBeginning)
{
    const auto scope = keychain.stage();
    scope->deleteMatching(item);
    program.identifier = "renamed";

    EXPECT_EQ(scope->add(item.with(kSecValueData, bytes("value"))), KeychainStatus::success);

    EXPECT_EQ(store->items().begin()->first.accessGroup, "program");
}

TEST_F(StoreKeychainTest, ReplacesWhatAnotherProgramAddedAfterTheLook)
{
    const auto scope = keychain.stage();
    EXPECT_EQ(scope->deleteMatching(item), KeychainStatus::itemNotFound);
    keychain.add(item.with(kSecValueData, bytes("theirs")));

    EXPECT_EQ(scope->add(item.with(kSecValueData, bytes("ours"))), KeychainStatus::success);

    EXPECT_EQ(store->items().begin()->second.data, bytes("ours"));
}

}  // namespace
