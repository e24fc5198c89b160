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

/// One run: what it is given, and how it must end. A "get" that succeeds must tell the value.
struct Step
{
    Arguments words;
    std::string input, third;
    int exitCode;
};

void expectSteps(const KeychainHome& home, const std::vector<Step>& steps)
{
    for (const auto& [words, input, third, exitCode] : steps)
    {
        const auto ended = home.keychain(words, input, third);
        SCOPED_TRACE(testing::PrintToString(words) + ended.errors);
        EXPECT_EQ(ended.exitCode, exitCode);
        EXPECT_EQ(ended.output == "value", words[0] == "get" && exitCode == 0);
        EXPECT_THAT(ended.output + ended.errors, Not(HasSubstr("secret")));
    }
}

TEST(KeychainPasscode, ReleasesWhatWasKeptUnderItAndNothingElseDoes)
{
    const KeychainHome home;
    const auto set = with({"set", "signing"}, sealed);
    const auto get = with({"get", "signing", "--passcode-fd", "3"}, sealed);
    const Arguments remove{"passcode", "remove", "--yes"};

    expectSteps(home, {
                          {set, "value", "", 10},  // no passcode, no such items
                          {{"passcode", "set"}, "first secret\n", "", 0},
                          {set, "value", "", 0},
                          {get, "", "first secret\n", 0},
                          {get, "", "guess\n", 9},
                          {{"passcode", "change"}, "first secret\nsecond secret\n", "", 0},
                          {get, "", "second secret\n", 0},
                          {with({"list"}, sealed), "", "", 0},  // without a question
                          {{"passcode", "remove"}, "second secret\n", "", 2},
                          {remove, "first secret\n", "", 9},
                          {remove, "second secret\n", "", 0},
                          {get, "", "second secret\n", 10},
                      });
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

    expectSteps(home, {
                          {{"set", "draft", "--id", "Notes"}, "value", "", 0},
                          {{"unlock"}, "", "", 0},  // there is nothing to unlock
                          {{"passphrase", "set"}, "first secret\n", "", 0},
                          {{"passphrase", "set", "--passphrase-fd", "3"}, "", "other\n", 10},
                          {get, "", "", 10},
                          {given, "", "first secret\n", 0},
                          {given, "", "guess\n", 10},  // an access error, not a cancellation
                          // Of standard input the passphrase is the first line alone.
                          {with({"set", "draft", "--id", "Notes"}, {"--passphrase-fd", "0"}),
                           "first secret\nvalue", "", 0},
                          {{"passphrase", "change"}, "first secret\nsecond secret\n", "", 0},
                          {{"passphrase", "change", "--passphrase-fd", "3"},
                           "third secret\n",
                           "second secret\n",
                           0},
                          {{"unlock", "--passphrase-fd", "3"}, "", "third secret\n", 0},
                          {{"passphrase", "remove"}, "third secret\n", "", 0},
                          {get, "", "", 0},
                      });
}

}  // namespace
}  // namespace commandline
