#include "tests/tools/tessera/KeychainHome.hpp"

#include <gmock/gmock.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

const Arguments sealed{"--id", "Keys", "--access-control", "devicePasscode"};

Arguments with(Arguments words, const Arguments& more)
{
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

TEST(KeychainPasscode, ReleasesWhatWasKeptUnderItAndNothingElseDoes)
{
    const KeychainHome home;
    const auto get = with({"get", "signing"}, sealed);
    const auto read = [&](const std::string& passcode)
    { return home.keychain(with(get, {"--passcode-fd", "3"}), "", passcode + "\n"); };

    const auto early = home.keychain(with({"set", "signing"}, sealed), "value");
    const auto set = home.keychain({"passcode", "set"}, "first secret\n");
    const auto twice = home.keychain({"passcode", "set"}, "other\n");
    const auto kept = home.keychain(with({"set", "signing"}, sealed), "value");
    const auto right = read("first secret");
    const auto wrong = read("guess");
    const auto changed = home.keychain({"passcode", "change"}, "first secret\nsecond secret\n");
    const auto old = read("first secret");
    const auto fresh = read("second secret");
    const auto listed = home.keychain(with({"list"}, sealed));
    const auto status = home.keychain({"passcode", "status", "--json"}).json();
    const auto unconfirmed = home.keychain({"passcode", "remove"}, "second secret\n");
    const auto wrongRemoval = home.keychain({"passcode", "remove", "--yes"}, "first secret\n");
    const auto removed = home.keychain({"passcode", "remove", "--yes"}, "second secret\n");
    const auto lost = read("second secret");

    EXPECT_EQ(early.exitCode, 10) << "no passcode, no such items";
    EXPECT_EQ(set.exitCode, 0) << set.errors;
    EXPECT_EQ(twice.exitCode, 10);
    EXPECT_EQ(kept.exitCode, 0) << kept.errors;
    EXPECT_EQ(right.output, "value") << right.errors;
    EXPECT_EQ(wrong.exitCode, 9);
    EXPECT_EQ(wrong.output, "");
    EXPECT_EQ(changed.exitCode, 0) << changed.errors;
    EXPECT_EQ(old.exitCode, 9);
    EXPECT_EQ(fresh.output, "value") << fresh.errors;
    EXPECT_EQ(listed.output, "signing\n") << "keys are listed without a question";
    EXPECT_TRUE(status.at("set").as_bool());
    EXPECT_EQ(unconfirmed.exitCode, 2);
    EXPECT_EQ(wrongRemoval.exitCode, 9);
    EXPECT_EQ(removed.exitCode, 0) << removed.errors;
    EXPECT_EQ(lost.exitCode, 10);
    for (const auto& ended : {set, twice, right, wrong, changed, old, wrongRemoval, removed, lost})
        EXPECT_THAT(ended.output + ended.errors, Not(HasSubstr("secret")));
}

TEST(KeychainPasscode, IsTypedUnseenAndAskedForWithTheReason)
{
    const KeychainHome home;
    auto setting = home.atTerminal({"passcode", "set"});
    ASSERT_TRUE(setting.shows("New passcode: ")) << setting.screen();
    EXPECT_FALSE(setting.echoes());
    setting.type("hidden\n");
    ASSERT_TRUE(setting.shows("The same again: ")) << setting.screen();
    setting.type("hidden\n");
    ASSERT_EQ(setting.end(), 0) << setting.screen();
    ASSERT_EQ(home.keychain(with({"set", "signing"}, sealed), "value").exitCode, 0);

    auto reading = home.atTerminal(with({"get", "signing", "--prompt", "Sign the letter"}, sealed));
    ASSERT_TRUE(reading.shows("Passcode: ")) << reading.screen();
    EXPECT_FALSE(reading.echoes());
    reading.type("hidden\n");
    EXPECT_EQ(reading.end(), 0) << reading.screen();
    auto interrupted = home.atTerminal(with({"get", "signing"}, sealed));
    ASSERT_TRUE(interrupted.shows("Passcode: ")) << interrupted.screen();
    interrupted.type("hid\x03");
    ASSERT_TRUE(interrupted.shows("cancelled")) << interrupted.screen();
    EXPECT_TRUE(interrupted.echoes());
    EXPECT_EQ(interrupted.end(), 130);
    const auto away = home.keychain(with({"get", "signing"}, sealed));

    EXPECT_THAT(setting.screen() + reading.screen(), Not(HasSubstr("hidden")));
    EXPECT_THAT(reading.screen(), HasSubstr("Sign the letter\r\nPasscode: \r\n"));
    EXPECT_THAT(reading.screen(), HasSubstr("value\r\n"));
    EXPECT_EQ(away.output, "");
    EXPECT_EQ(away.exitCode, 2) << "nobody was there to be asked";
    EXPECT_THAT(away.errors, HasSubstr("--passcode-fd"));
}

TEST(KeychainPasscode, OfTwoDifferentOnesNeitherIsSet)
{
    const KeychainHome home;
    auto setting = home.atTerminal({"passcode", "set"});
    ASSERT_TRUE(setting.shows("New passcode: ")) << setting.screen();
    setting.type("one\n");
    ASSERT_TRUE(setting.shows("The same again: ")) << setting.screen();
    setting.type("two\n");

    EXPECT_EQ(setting.end(), 9) << setting.screen();
    EXPECT_FALSE(home.keychain({"passcode", "status", "--json"}).json().at("set").as_bool());
}

TEST(KeychainPresence, IsTheEnterKeyAtATerminal)
{
    const KeychainHome home;
    for (const Arguments& kind : {Arguments{}, Arguments{"--single-prompt"}})
    {
        const auto store = with({"--id", "Keys", "--access-control", "userPresence"}, kind);
        ASSERT_EQ(home.keychain(with({"set", "signing"}, store), "value").exitCode, 0);

        auto reading = home.atTerminal(with({"get", "signing"}, store));
        ASSERT_TRUE(reading.shows("Press Enter")) << reading.screen();
        reading.type("\n");

        EXPECT_EQ(reading.end(), 0) << reading.screen();
        EXPECT_THAT(reading.screen(), HasSubstr("value\r\n"));
        EXPECT_NE(home.keychain(with({"get", "signing"}, store), "\n").exitCode, 0);
    }
}

TEST(KeychainPassphrase, LocksTheKeyUntilItIsGiven)
{
    const KeychainHome home;
    const Arguments get{"get", "draft", "--id", "Notes"};
    const auto given = with(get, {"--passphrase-fd", "3"});
    ASSERT_EQ(home.keychain({"set", "draft", "--id", "Notes"}, "value").exitCode, 0);

    const auto nothing = home.keychain({"unlock"});
    const auto set = home.keychain({"passphrase", "set"}, "first secret\n");
    const auto twice = home.keychain({"passphrase", "set"}, "other\n");
    const auto locked = home.keychain(get);
    const auto right = home.keychain(given, "", "first secret\n");
    const auto wrong = home.keychain(given, "", "guess\n");
    const auto wrongChange = home.keychain({"passphrase", "change"}, "guess\nsecond secret\n");
    const auto changed = home.keychain({"passphrase", "change"}, "first secret\nsecond secret\n");
    const auto unlocked = home.keychain({"unlock", "--passphrase-fd", "3"}, "", "second secret\n");
    const auto status = home.keychain({"passphrase", "status", "--json"}).json();
    const auto removed = home.keychain({"passphrase", "remove"}, "second secret\n");

    EXPECT_THAT(nothing.output, HasSubstr("nothing to unlock"));
    EXPECT_EQ(set.exitCode, 0) << set.errors;
    EXPECT_EQ(twice.exitCode, 10);
    EXPECT_EQ(locked.exitCode, 10);
    EXPECT_THAT(locked.errors, HasSubstr("passphrase"));
    EXPECT_EQ(right.output, "value") << right.errors;
    EXPECT_EQ(wrong.exitCode, 10) << "an access error, not a cancellation";
    EXPECT_EQ(wrongChange.exitCode, 10);
    EXPECT_EQ(changed.exitCode, 0) << changed.errors;
    EXPECT_EQ(unlocked.exitCode, 0) << unlocked.errors;
    EXPECT_TRUE(status.at("set").as_bool());
    EXPECT_EQ(removed.exitCode, 0) << removed.errors;
    EXPECT_EQ(home.keychain(get).output, "value");
    for (const auto& ended : {set, twice, locked, right, wrong, wrongChange, changed, removed})
        EXPECT_THAT(ended.output + ended.errors, Not(HasSubstr("secret")));
}

TEST(KeychainPassphrase, FromItsDescriptorLeavesStandardInputAlone)
{
    const KeychainHome home;
    const auto at = [&](Arguments words, const std::string& given, const std::string& input = "")
    {
        const auto ended = home.keychain(with(words, {"--passphrase-fd", "3"}), input, given);
        return std::to_string(ended.exitCode) + ended.errors;
    };

    EXPECT_EQ(at({"passphrase", "set"}, "first\n"), "0");
    EXPECT_EQ(at({"passphrase", "change"}, "first\n", "second\n"), "0");
    EXPECT_EQ(at({"unlock"}, "second\n"), "0");
    EXPECT_THAT(home.keychain({"unlock"}).errors, HasSubstr("--passphrase-fd"));
    EXPECT_EQ(at({"passphrase", "remove"}, "second\n"), "0");
    EXPECT_FALSE(home.keychain({"passphrase", "status", "--json"}).json().at("set").as_bool());
}

TEST(KeychainPassphrase, IsAskedForAtATerminalAndWrapsAFirstKeyToo)
{
    const KeychainHome home;
    ASSERT_EQ(home.keychain({"passphrase", "set"}, "hidden\n").exitCode, 0);
    // Of standard input the passphrase is the first line alone.
    ASSERT_EQ(
        home.keychain({"set", "draft", "--id", "Notes", "--passphrase-fd", "0"}, "hidden\nvalue")
            .exitCode,
        0);

    auto reading = home.atTerminal({"get", "draft", "--id", "Notes"});
    ASSERT_TRUE(reading.shows("Passphrase of the keychain: ")) << reading.screen();
    EXPECT_FALSE(reading.echoes());
    reading.type("hidden\n");

    EXPECT_EQ(reading.end(), 0) << reading.screen();
    EXPECT_THAT(reading.screen(), HasSubstr("value\r\n"));
    EXPECT_THAT(reading.screen(), Not(HasSubstr("hidden")));
}

}  // namespace
}  // namespace commandline
