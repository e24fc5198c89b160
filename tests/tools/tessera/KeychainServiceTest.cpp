#include "tests/support/SecretServiceForTest.hpp"
#include "tests/tools/tessera/KeychainHome.hpp"

#include <gmock/gmock.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

/// A home with a keyring of its own, which is the keychain to use.
struct KeyringHome : KeychainHome
{
    PrivateSecretService service;

    explicit KeyringHome(PrivateSecretService::Start start = PrivateSecretService::Start::unlocked)
        : service(start)
    {
        variables = {"DBUS_SESSION_BUS_ADDRESS=" + service.busAddress(),
                     "TESSERA_KEYCHAIN=secret-service"};
    }

    std::string report(const Arguments& more = {}) const
    {
        Arguments words{"doctor"};
        words.insert(words.end(), more.begin(), more.end());
        const auto before = snapshot();
        const auto ended = keychain(words);
        EXPECT_EQ(snapshot(), before);
        return std::to_string(ended.exitCode) + "\n" + ended.output + ended.errors;
    }
};

class KeychainOnSecretService : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!PrivateSecretService::isInstalled())
            GTEST_SKIP() << "There is no keyring.";
    }
};

TEST_F(KeychainOnSecretService, KeepsListsAndRemoves)
{
    const KeyringHome home;
    const std::string value("\0\xFF value", 8);

    const auto unlocked = home.keychain({"unlock"});
    const auto kept = home.keychain({"set", "draft", "--id", "Notes"}, value);
    const auto read = home.keychain({"get", "draft", "--id", "Notes"});
    const auto listed = home.keychain({"list", "--id", "Notes"});
    const auto here = home.report();
    const auto elsewhere = home.report({"--keychain", "embedded"});
    const auto removed = home.keychain({"remove", "draft", "--id", "Notes"});

    EXPECT_EQ(unlocked.exitCode, 0) << unlocked.errors;
    EXPECT_EQ(kept.exitCode, 0) << kept.errors;
    EXPECT_EQ(read.output, value) << read.errors;
    EXPECT_EQ(listed.output, "draft\n");
    EXPECT_TRUE(here.starts_with("0\n")) << here;
    EXPECT_THAT(here, HasSubstr("because TESSERA_KEYCHAIN names it"));
    EXPECT_THAT(here, HasSubstr("collection of the Secret Service is unlocked"));
    EXPECT_THAT(here, HasSubstr("1 item in 1 store"));
    EXPECT_THAT(elsewhere, HasSubstr("The Secret Service holds 1 of the program's items"));
    EXPECT_EQ(removed.exitCode, 0) << removed.errors;
    EXPECT_EQ(home.keychain({"get", "draft", "--id", "Notes"}).exitCode, 11);
}

TEST_F(KeychainOnSecretService, TellsThatItIsLockedAndHowToUnlockIt)
{
    KeyringHome home;
    ASSERT_EQ(home.keychain({"set", "draft", "--id", "Notes"}, "value").exitCode, 0);
    home.service.lock();

    const auto read = home.keychain({"get", "draft", "--id", "Notes"});
    const auto report = home.report();
    const auto unlock = home.keychain({"unlock"});
    home.service.killDaemon();
    const auto gone = home.report();

    EXPECT_EQ(read.exitCode, 10);
    EXPECT_THAT(read.errors, HasSubstr("tessera keychain unlock"));
    EXPECT_EQ(unlock.exitCode, 9) << unlock.errors << "there is no desktop that could prompt";
    EXPECT_TRUE(report.starts_with("12\n")) << report;
    EXPECT_THAT(report, HasSubstr("fault  The default collection of the Secret Service is locked"));
    EXPECT_THAT(report, HasSubstr("tessera keychain unlock --keychain secret-service"));
    EXPECT_THAT(gone, HasSubstr("fault  No Secret Service runs"));
    EXPECT_THAT(read.errors + report + gone, Not(HasSubstr("value")));
}

}  // namespace
}  // namespace commandline
