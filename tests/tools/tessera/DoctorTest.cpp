#include "tests/tools/tessera/KeychainHome.hpp"

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "tools/account-server/Files.hpp"

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>

namespace commandline
{
namespace
{

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr auto canary = "VAL_KeychainCanaryUsername";

/// What the doctor says about one thing, as "state: text" and the next step; "" where it says
/// nothing.
std::string told(const boost::json::value& report, const std::string& name)
{
    std::string all;
    for (const auto& finding : report.at("findings").as_array())
        if (finding.at("name").as_string() == name)
        {
            all += std::string(finding.at("state").as_string()) + ": " +
                   std::string(finding.at("text").as_string()) + "\n";
            if (const auto* next = finding.as_object().if_contains("next"))
                all += std::string(next->as_string()) + "\n";
        }
    return all;
}

/// Both forms of the report, with nothing changed by either.
struct Examined
{
    Ended forPeople;
    boost::json::value report;
    int exitCode;
};

Examined examine(const KeychainHome& home, const Arguments& more = {})
{
    Arguments words{"doctor"};
    words.insert(words.end(), more.begin(), more.end());
    const auto before = home.snapshot();
    auto forPeople = home.keychain(words);
    words.emplace_back("--json");
    const auto forScripts = home.keychain(words);
    EXPECT_EQ(home.snapshot(), before) << forPeople.output;
    EXPECT_EQ(forPeople.exitCode, forScripts.exitCode);
    EXPECT_EQ(forPeople.errors + forScripts.errors, "");
    const auto report = forScripts.json();
    for (const auto& finding : report.at("findings").as_array())
        EXPECT_THAT(forPeople.output, HasSubstr(std::string(finding.at("text").as_string())));
    return {forPeople, report, forScripts.exitCode};
}

TEST(Doctor, FindsNothingWrongWithAFreshUserAndMakesNothing)
{
    const KeychainHome home;

    const auto examined = examine(home);

    EXPECT_EQ(examined.exitCode, 0) << examined.forPeople.output;
    EXPECT_EQ(told(examined.report, "keychain.inUse"),
              "good: The embedded keychain is in use, by default.\n");
    EXPECT_THAT(told(examined.report, "embedded.empty"), HasSubstr("note: "));
    EXPECT_EQ(home.snapshot().size(), 1u) << "the runtime folder alone";
}

TEST(Doctor, TellsWhatAWorkingKeychainHolds)
{
    const KeychainHome home;
    ASSERT_EQ(home.keychain({"set", "a", "--id", "Notes"}, "value").exitCode, 0);
    ASSERT_EQ(home.keychain({"set", "b", "--id", "Notes"}, "value").exitCode, 0);
    ASSERT_EQ(
        home.keychain({"set", canary, "--id", "Notes"}, "VAL_ProbeItemSecretValue77").exitCode, 0);
    ASSERT_EQ(home.keychain({"set", "a", "--service", "plain", "--synchronizable"}, "v").exitCode,
              0);

    const auto all = examine(home);
    const auto one = examine(home, {"--id", "Notes"});
    const auto none = examine(home, {"--id", "Others"});
    const auto wrapped = home.keychain({"passphrase", "set"}, "hidden\n");
    const auto locked = home.keychain({"doctor", "--json"});
    const auto unlocked =
        home.keychain({"doctor", "--json", "--passphrase-fd", "3"}, "", "hidden\n");

    EXPECT_EQ(all.exitCode, 0) << all.forPeople.output;
    for (const auto* name : {"embedded.dataFolder", "embedded.keyFolder"})
        EXPECT_THAT(told(all.report, name), HasSubstr("mode 0700")) << name;
    for (const auto* name : {"embedded.database", "embedded.key", "embedded.lock"})
        EXPECT_THAT(told(all.report, name), HasSubstr("mode 0600")) << name;
    EXPECT_THAT(told(all.report, "embedded.passphrase"), HasSubstr("note: The key has no"));
    EXPECT_THAT(told(all.report, "embedded.format"), HasSubstr("good: "));
    EXPECT_THAT(told(all.report, "items"), HasSubstr("3 items in 2 stores"));
    EXPECT_THAT(told(all.report, "store.canary"), HasSubstr("has a canary that holds"));
    EXPECT_THAT(told(all.report, "store.canary"), HasSubstr("has no canary yet"));
    EXPECT_THAT(told(one.report, "items"), HasSubstr("2 items in 1 store "));
    EXPECT_THAT(told(none.report, "store.canary"), HasSubstr("has no canary yet"));
    EXPECT_THAT(all.forPeople.output, Not(HasSubstr("ProbeItem")));
    EXPECT_EQ(locked.exitCode, 12);
    EXPECT_THAT(told(locked.json(), "embedded.locked"), HasSubstr("passphrase"));
    EXPECT_EQ(unlocked.exitCode, 0) << unlocked.output;
    EXPECT_THAT(told(unlocked.json(), "embedded.passphrase"), HasSubstr("good: "));
}

TEST(Doctor, LooksBesideAProgramThatHasTheKeychainOpen)
{
    const KeychainHome home;
    platform::EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = home.data;
    configuration.keyFolder = home.keys;
    platform::EmbeddedItemStore store(std::move(configuration));
    const std::string_view value = "value";
    ASSERT_EQ(store.add({.identity = {"plain", "a", "net.ostra.tessera", false},
                         .data = platform::SecretBytes(std::as_bytes(std::span(value)))}),
              platform::KeychainStatus::success);
    ASSERT_TRUE(fs::exists(home.data / "keychain.db-wal")) << "as a killed program leaves it, too";

    const auto examined = examine(home);

    EXPECT_EQ(examined.exitCode, 0) << examined.forPeople.output;
    EXPECT_THAT(told(examined.report, "embedded.log"), HasSubstr("mode 0600"));
    EXPECT_THAT(told(examined.report, "items"), HasSubstr("1 item in 1 store"));
}

TEST(Doctor, NamesACanaryThatDiffersAndTheWayToRemoveIt)
{
    const KeychainHome home;
    const Arguments store{
        "--id", "it's", "--group", "group.org.example", "--accessibility", "afterFirstUnlock"};
    const auto with = [&](Arguments words)
    {
        words.insert(words.end(), store.begin(), store.end());
        return words;
    };
    ASSERT_EQ(home.keychain(with({"set", canary}), "foreign").exitCode, 0);

    const auto examined = examine(home, store);
    const std::string output = examined.forPeople.output;
    const auto command = output.find("tessera keychain remove ");
    ASSERT_NE(command, std::string::npos) << output;
    // As a shell would take it.
    const auto line = output.substr(command, output.find('\n', command) - command);
    TemporaryFolder tools;
    fs::create_symlink(TESSERA_PROGRAM, tools.path() / "tessera");
    const auto path = "PATH=" + tools.path().string() + ":$PATH; ";
    ASSERT_EQ(home.shell(path + line + " > /dev/null"), 0) << line;

    EXPECT_EQ(examined.exitCode, 12);
    EXPECT_THAT(told(examined.report, "store.canary"), HasSubstr("fault: "));
    EXPECT_THAT(output, Not(HasSubstr("foreign")));
    EXPECT_EQ(examine(home, store).exitCode, 0);
}

TEST(Doctor, NamesEachFaultOfFoldersAndFiles)
{
    const struct
    {
        const char* what;
        const char* name;
        const char* text;
        std::function<void(const KeychainHome&)> breakIt;
    } cases[] = {
        {"data folder open to others", "embedded.dataFolder", "open to others (mode 0755)",
         [](const auto& home) { fs::permissions(home.data, fs::perms(0755)); }},
        {"key open to others", "embedded.key", "open to others (mode 0644)",
         [](const auto& home) { fs::permissions(home.key, fs::perms(0644)); }},
        {"data folder that takes nothing", "embedded.dataFolder",
         "cannot be written.\nAllow it with: chmod u+rwx",
         [](const auto& home)
         {
             fs::remove_all(home.data);
             fs::create_directory(home.data);
             fs::permissions(home.data, fs::perms(0500));
         }},
        {"no place for the data folder", "embedded.dataFolder", "data cannot be written",
         [](const auto& home)
         {
             fs::remove_all(home.data.parent_path());
             fs::permissions(home.folder.path() / "data", fs::perms(0500));
         }},
        {"database that takes nothing", "embedded.database", "cannot be written.",
         [](const auto& home) { fs::permissions(home.database, fs::perms(0400)); }},
        {"folder behind a link", "embedded.dataFolder", "is a symbolic link",
         [](const auto& home)
         {
             fs::rename(home.data, home.folder.path() / "elsewhere");
             fs::create_directory_symlink(home.folder.path() / "elsewhere", home.data);
         }},
        {"key is a folder", "embedded.key", "is no file",
         [](const auto& home)
         {
             fs::remove(home.key);
             fs::create_directory(home.key);
         }},
        {"key missing", "embedded.keyMissing", "keychain.key is missing",
         [](const auto& home) { fs::remove(home.key); }},
        {"key of nonsense", "embedded.read", "If there is none, the items are lost",
         [](const auto& home) { accountserver::writeFile(home.key, std::string(200, 'x')); }},
        {"database missing", "embedded.read", "missing",
         [](const auto& home) { fs::remove(home.database); }},
        {"database of nonsense", "embedded.read", "damaged",
         [](const auto& home) { accountserver::writeFile(home.database, std::string(8192, 'x')); }},
    };
    for (const auto& [what, name, text, breakIt] : cases)
    {
        SCOPED_TRACE(what);
        const KeychainHome home;
        ASSERT_EQ(home.keychain({"set", "a", "--id", "Notes"}, "value").exitCode, 0);
        ASSERT_EQ(examine(home).exitCode, 0);
        breakIt(home);

        const auto examined = examine(home);

        EXPECT_EQ(examined.exitCode, 12) << examined.forPeople.output;
        EXPECT_GE(examined.report.at("faults").as_int64(), 1);
        const auto said = told(examined.report, name);
        EXPECT_THAT(said, HasSubstr("fault: ")) << examined.forPeople.output;
        EXPECT_THAT(said, HasSubstr(text));
        for (const auto& finding : examined.report.at("findings").as_array())
            if (finding.at("state").as_string() == "fault")
            {
                EXPECT_FALSE(finding.at("next").as_string().empty());
            }
    }
}

}  // namespace
}  // namespace commandline
