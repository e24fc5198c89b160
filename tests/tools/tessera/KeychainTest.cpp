#include "tests/tools/tessera/KeychainHome.hpp"

#include "Platform/Coding/Base64.hpp"

#include <gmock/gmock.h>
#include <boost/json/serialize.hpp>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace commandline
{
namespace
{

using testing::HasSubstr;
using testing::Not;

std::string texts(const boost::json::value& array)
{
    std::string all;
    for (const auto& text : array.as_array())
        all += std::string(text.as_string()) + ";";
    return all;
}

TEST(KeychainCommand, KeepsBytesAsTheyAreInStoresThatDoNotSeeEachOther)
{
    const KeychainHome home;
    const std::string values[] = {"plain", "with a line end\n", std::string("\0\xFF\x1B[2J", 6),
                                  std::string(100'000, 'x')};
    const Arguments stores[] = {
        {"--id", "Notes"},
        {"--id", "Notes", "--accessibility", "afterFirstUnlock"},
        {"--id", "Notes", "--synchronizable"},
        {"--id", "Notes", "--program", "org.example.other"},
        {"--service", "Notes"},
        {"--group", "group.org.example"},
        {"--id", "Notes", "--group", "group.org.example"},
    };
    const auto at = [](Arguments words, const Arguments& store)
    {
        words.insert(words.end(), store.begin(), store.end());
        return words;
    };

    std::size_t i = 0;
    for (const auto& store : stores)
        EXPECT_EQ(home.keychain(at({"set", "draft"}, store), values[i++ % 4]).exitCode, 0);
    i = 0;
    for (const auto& store : stores)
    {
        const auto& value = values[i++ % 4];
        const auto read = home.keychain(at({"get", "draft"}, store));
        EXPECT_EQ(read.output, value) << read.errors;
        EXPECT_EQ(read.errors, "");
        const auto told = home.keychain(at({"get", "draft", "--json"}, store)).json().as_object();
        if (const auto* text = told.if_contains("text"))
            EXPECT_EQ(text->as_string(), value);
        else
            EXPECT_EQ(told.at("base64").as_string(),
                      platform::encodeBase64(std::as_bytes(std::span(value))));
    }
    EXPECT_EQ(home.keychain({"remove", "draft", "--id", "Notes"}).exitCode, 0);
    EXPECT_EQ(home.keychain({"get", "draft", "--id", "Notes"}).exitCode, 11);
    EXPECT_EQ(home.keychain(at({"get", "draft"}, stores[1])).exitCode, 0);
}

TEST(KeychainCommand, ListsKeysInAWayThatNamesThem)
{
    const KeychainHome home;
    const std::string keys[] = {"b", "a\\x0A", "line\nend",
                                "\xC2\x9B"
                                "31m",
                                "gr\xC3\xBC\xC3\x9F"};
    for (const auto& key : keys)
        ASSERT_EQ(home.keychain({"set", "--id", "Notes", "--", key}, "value").exitCode, 0);

    const auto listed = home.keychain({"list", "--id", "Notes"});
    const auto told = home.keychain({"list", "--id", "Notes", "--json"}).json();
    const auto stores = home.keychain({"list"});
    const auto toldStores = home.keychain({"list", "--json"}).json().at("stores").as_array();

    EXPECT_EQ(listed.output,
              "a\\\\x0A\nb\ngr\xC3\xBC\xC3\x9F\nline\\x0Aend\n\\xC2\\x9B"
              "31m\n");
    EXPECT_EQ(texts(told.at("keys")),
              "a\\x0A;b;gr\xC3\xBC\xC3\x9F;line\nend;\xC2\x9B"
              "31m;");
    EXPECT_EQ(home.keychain({"get", "--id", "Notes", "--escaped",
                             "line\\x0A"
                             "end"})
                  .output,
              "value");
    ASSERT_EQ(toldStores.size(), 1u);
    EXPECT_EQ(toldStores[0].at("service"), told.at("service"));
    EXPECT_EQ(toldStores[0].at("items").as_int64(), 5);
    EXPECT_EQ(texts(toldStores[0].at("accessibility")), "whenUnlocked;");
    EXPECT_THAT(stores.output, HasSubstr("_Notes_AccessibleWhenUnlocked\n  5 items"));
    EXPECT_THAT(boost::json::serialize(toldStores) + stores.output, Not(HasSubstr("value")));
}

struct ErrorCase
{
    Arguments arguments;
    int exitCode;
    std::string className;
    std::string name;
    std::string input = "hidden";
};

/// The same failure, told to a person and to a script.
void expectTold(const KeychainHome& home, const ErrorCase& error)
{
    auto words = error.arguments;
    const auto forPeople = home.keychain(words, error.input);
    words.emplace_back("--json");
    const auto forScripts = home.keychain(words, error.input);

    SCOPED_TRACE(testing::PrintToString(error.arguments) + forPeople.errors + forScripts.output);
    EXPECT_EQ(forPeople.exitCode, error.exitCode);
    EXPECT_EQ(forPeople.output, "");
    EXPECT_TRUE(forPeople.errors.starts_with("tessera: "));
    EXPECT_TRUE(forPeople.errors.ends_with(".\n"));
    EXPECT_THAT(forPeople.errors + forScripts.output, Not(HasSubstr("hidden")));
    EXPECT_EQ(forScripts.exitCode, error.exitCode);
    EXPECT_EQ(forScripts.errors, "");
    const auto told = forScripts.json().at("error");
    EXPECT_EQ(told.at("class").as_string(), error.className);
    EXPECT_EQ(told.at("name").as_string(), error.name);
    EXPECT_FALSE(told.at("next").as_string().empty());
    // What only the layers below know is told in lines before the error's own.
    const bool opaque = error.name.ends_with("couldNotAccessKeychain") && words[0] != "set";
    EXPECT_FALSE(opaque && told.at("diagnostics").as_array().empty());
}

TEST(KeychainCommand, TellsTheClassOfEachErrorByItsExitCode)
{
    const KeychainHome home;
    const Arguments misuses[] = {
        {},
        {"list", "--id", "a", "--service", "b"},
        {"list", "--id", ""},
        {"list", "--synchronizable"},
        {"list", "--keychain", "paper"},
        {"list", "--id", "a", "--group", "nodot"},
        {"list", "--id", "a", "--single-prompt"},
        {"list", "--service", "a", "--access-control", "userPresence"},
        {"list", "--id", "a", "--synchronizable", "--accessibility", "whenUnlockedThisDeviceOnly"},
        {"list", "--id", "\xFF"},
        {"list", "--passphrase-fd", "hidden"},
        {"get", "--id", "a"},
        {"get", "--id", "a", "key", "--passphrase-fd", "1"},
        {"set", "--id", "a", "key", "hidden"},
        {"set", "--id", "a", "key", "--value=hidden"},
        {"set", "--id", "a", "--escaped", "\\q"},
        {"set", "--id", "a", std::string(1025, 'k')},
        {"remove", "--id", "a", "--all", "key"},
    };
    for (const auto& arguments : misuses)
        expectTold(home, {arguments, 2, "usage", "usage"});

    const std::string noAccess = "KeychainError.couldNotAccessKeychain";
    const ErrorCase cases[] = {
        {{"set", "--id", "a", "key"}, 2, "usage", "KeychainError.emptyValue", ""},
        {{"set", "--id", "a", "key"}, 2, "usage", "valueTooLong", std::string((4 << 20) + 1, 'v')},
        {{"remove", "--id", "a", "--all"}, 2, "usage", "notConfirmed"},
        {{"passphrase", "set", "--keychain", "secret-service"}, 2, "usage", "noPassphrase"},
        {{"set", "--id", "a", "key", "--access-control", "anyFingerprint"},
         10,
         "keychain",
         noAccess},
        {{"list", "--keychain", "secret-service"}, 10, "keychain", noAccess},
        {{"passcode", "change"}, 10, "keychain", "noPasscode"},
        {{"get", "--id", "a", "key"}, 11, "itemNotFound", "KeychainError.itemNotFound"},
    };
    for (const auto& error : cases)
        expectTold(home, error);
}

TEST(KeychainCommand, TakesNoFileOfItsOwnForADescriptorThatTheCallerClosed)
{
    const KeychainHome home;
    ASSERT_EQ(home.keychain({"set", "draft", "--id", "Notes"}, "value").exitCode, 0);
    const std::pair<std::string, int> cases[] = {
        {"set draft --id Notes <&-", 2},      {"get draft --id Notes >&-", 1},
        {"get draft --id Notes >&- 2>&-", 1}, {"list --passphrase-fd 3 </dev/null", 2},
        {"list --passphrase-fd 4", 2},        {"list --passphrase-fd 8", 2},
    };
    for (const auto& [words, exitCode] : cases)
    {
        // Ended by force if it waits for what never comes.
        const std::string closed = "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- >/dev/null; ";
        const auto command = "exec timeout -k 1 20 " TESSERA_PROGRAM " keychain " + words;
        EXPECT_EQ(home.shell(closed + command), exitCode) << words;
    }
    EXPECT_EQ(home.keychain({"get", "draft", "--id", "Notes"}).output, "value");
}

TEST(KeychainCommand, RemovesAllOnlyWhenConfirmed)
{
    const KeychainHome home;
    const auto isThere = [&]
    { return home.keychain({"list", "--id", "Notes"}).output == "draft\n"; };
    ASSERT_EQ(home.keychain({"set", "draft", "--id", "Notes"}, "value").exitCode, 0);

    for (const auto& [answer, exitCode] :
         {std::pair("no\n", 9), std::pair("\x04", 9), std::pair("remove\n", 0)})
    {
        EXPECT_TRUE(isThere());
        auto terminal = home.atTerminal({"remove", "--all", "--id", "Notes"});
        ASSERT_TRUE(terminal.shows("to go on: ")) << terminal.screen();
        terminal.type(answer);
        EXPECT_EQ(terminal.end(), exitCode) << terminal.screen();
    }
    EXPECT_FALSE(isThere());
    EXPECT_EQ(home.keychain({"remove", "--all", "--yes", "--id", "Notes"}).exitCode, 0);
}

TEST(KeychainCommand, KeepsAValueFromATerminalUnseenAndShowsItPlainTextAlone)
{
    const KeychainHome home;

    auto typing = home.atTerminal({"set", "draft", "--id", "Notes"});
    ASSERT_TRUE(typing.shows("Value: ")) << typing.screen();
    EXPECT_FALSE(typing.echoes());
    typing.type("hidden\n");
    EXPECT_EQ(typing.end(), 0) << typing.screen();
    auto shown = home.atTerminal({"get", "draft", "--id", "Notes"});
    EXPECT_EQ(shown.end(), 0);
    ASSERT_EQ(home.keychain({"set", "draft", "--id", "Notes"}, "\x1B[2J").exitCode, 0);
    auto refused = home.atTerminal({"get", "draft", "--id", "Notes"});
    EXPECT_EQ(refused.end(), 2);
    auto forced = home.atTerminal({"get", "draft", "--id", "Notes", "--force"});
    EXPECT_EQ(forced.end(), 0);

    EXPECT_THAT(typing.screen(), Not(HasSubstr("hidden")));
    EXPECT_EQ(shown.screen(), "hidden\r\n");
    EXPECT_THAT(refused.screen(), Not(HasSubstr("[2J")));
    EXPECT_THAT(refused.screen(), HasSubstr("--force"));
    EXPECT_EQ(forced.screen(), "\x1B[2J\r\n");
}

TEST(KeychainCommand, TellsThatItWaitsAndEndsOnInterrupt)
{
    const KeychainHome home;
    std::filesystem::create_directories(home.keys);
    std::filesystem::permissions(home.keys, std::filesystem::perms::owner_all);
    const int lock =
        ::open((home.keys / "keychain.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::flock(lock, LOCK_EX), 0);

    auto waiting = home.atTerminal({"list", "--id", "Notes"});
    ASSERT_TRUE(waiting.shows("Waiting for the keychain ...")) << waiting.screen();
    waiting.type("\x03");

    EXPECT_EQ(waiting.end(), 130) << waiting.screen();
    EXPECT_THAT(waiting.screen(), HasSubstr("\r\x1B[K"));
    EXPECT_THAT(waiting.screen(), HasSubstr("cancelled"));
    ::close(lock);
}

}  // namespace
}  // namespace commandline
