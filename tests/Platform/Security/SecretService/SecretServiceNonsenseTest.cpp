#include "tests/Platform/Security/SecretService/SecretServiceStoreForTest.hpp"
#include "tests/support/NonsenseSecretService.hpp"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace platform;
using namespace std::chrono_literals;

namespace
{

/// Any number between 1 and the prime of the group passes for a public key.
std::string publicKey()
{
    std::string bytes;
    for (int index = 0; index < 128; ++index)
        bytes += index ? ", 0x55" : "0x55";
    return "(<[byte " + bytes + "]>, objectpath '/org/freedesktop/secrets/session/s1')";
}

bool hasThread(const std::string& name)
{
    std::error_code ignored;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", ignored))
    {
        std::ifstream file(task.path() / "comm");
        std::string line;
        if (std::getline(file, line) && line == name)
            return true;
    }
    return false;
}

struct Nonsense
{
    NonsenseSecretService::Script script;
    /// Of a read, a replacement and a deletion, each with a diagnostic that holds the words.
    std::array<int, 3> statuses;
    const char* words;
    bool isSilent = false;
};

NonsenseSecretService::Script with(NonsenseSecretService::Script script)
{
    script.merge(NonsenseSecretService::Script{
        {"OpenSession", publicKey()},
        {"SearchItems", "(@ao ['/org/freedesktop/secrets/collection/c/1'], @ao [])"},
        {"Collections", "(<[objectpath '/org/freedesktop/secrets/collection/c']>,)"},
        {"Locked", "(<false>,)"}});
    return script;
}

std::vector<Nonsense> nonsense()
{
    const auto none = std::pair{"SearchItems", "(@ao [], @ao [])"};
    const auto noItems = std::pair{"GetSecrets", "(@a{o(oayays)} {},)"};
    const auto silence = std::pair{"SearchItems", ""};
    constexpr std::array refused{-25291, -25291, -25291}, damaged{-26275, -26275, -26275};
    return {
        {with({{"SearchItems", "('x',)"}}), damaged, "nonsense"},
        {with({{"SearchItems", "!org.freedesktop.DBus.Error.UnknownMethod"}}), refused,
         "not ready"},
        {{{"OpenSession", "!org.freedesktop.DBus.Error.UnknownObject"}}, refused, "not ready"},
        {with({noItems}), refused, "change all the time"},
        {with({{"GetAll", "(@a{sv} {},)"}, noItems}), {-25291, -26275, -26275}, ""},
        {with({{"GetAll", "({'Attributes': <'x'>},)"},
               {"GetSecrets",
                "({objectpath '/org/freedesktop/secrets/collection/c/1': (objectpath "
                "'/org/freedesktop/secrets/session/s1', [byte 0x01], [byte 0x02], "
                "'text/plain')},)"}}),
         damaged, "nonsense"},
        {with({{"OpenSession", "!org.freedesktop.DBus.Error.NotSupported"},
               {"OpenSession plain", "(<''>, objectpath '/org/freedesktop/secrets/session/s1')"}}),
         refused, "no encrypted session"},
        {with({none, {"Collections", "(<'x'>,)"}}), damaged, "nonsense"},
        {with({none, {"Locked", "(<'perhaps'>,)"}}), damaged, "nonsense"},
        {with({none, {"CreateItem", "(objectpath '/', objectpath '/prompt')"}, {"Dismiss", "()"}}),
         {-25300, -25291, -25300},
         "locked"},
        {with({{"SearchItems", "!org.example.Own"}}), refused, "org.example.Own"},
        {with({silence}), refused, "in time", true},
        {{{"OpenSession", ""}}, refused, "in time", true},
    };
}

TEST(SecretServiceNonsense, EachKindIsOneStatusAndOneDiagnostic)
{
    if (!PrivateSecretService::isInstalled())
        GTEST_SKIP() << "dbus-daemon and gnome-keyring-daemon are not installed";
    const PrivateSecretService bus(PrivateSecretService::Start::busAlone);
    NonsenseSecretService service(bus.busAddress());
    const auto one = item("thekey", "v");

    for (const auto& row : nonsense())
    {
        SCOPED_TRACE(testing::PrintToString(row.script));
        service.play(row.script);
        Diagnostics diagnostics;
        SecretServiceItemStore store({.diagnostics = diagnostics.sink(),
                                      .limit = row.isSilent ? 200ms : 20s,
                                      .lockFolder = bus.lockFolder(),
                                      .busAddress = bus.busAddress()});
        const auto check = [&](KeychainStatus status, int expected)
        {
            EXPECT_EQ(static_cast<int>(status), expected);
            const auto reported = diagnostics.taken();
            EXPECT_EQ(reported.size(), expected == -25300 ? 0U : 1U);
            for (const auto& line : reported)
                EXPECT_NE(line.cause.find(row.words), std::string::npos) << line.cause;
        };

        check(store.copyMatching(patternOf(one), ItemContent::attributesAndData, 1).status,
              row.statuses[0]);
        check(store.replace(patternOf(one), one), row.statuses[1]);
        check(store.deleteMatching(patternOf(one)), row.statuses[2]);
    }
}

TEST(SecretServiceNonsense, UnlockingSucceedsOnlyIfTheUserAgreedAndItIsUnlocked)
{
    if (!PrivateSecretService::isInstalled())
        GTEST_SKIP() << "dbus-daemon and gnome-keyring-daemon are not installed";
    const PrivateSecretService bus(PrivateSecretService::Start::busAlone);
    NonsenseSecretService service(bus.busAddress());
    SecretServiceItemStore store({.lockFolder = bus.lockFolder(), .busAddress = bus.busAddress()});
    const auto unlocked =
        [&](NonsenseSecretService::Script script, std::chrono::milliseconds limit = 20s)
    {
        script.merge(NonsenseSecretService::Script{
            {"ReadAlias", "(objectpath '/org/freedesktop/secrets/collection/c',)"},
            {"Unlock", "(@ao [], objectpath '/prompt')"},
            {"CreateCollection", "(objectpath '/', objectpath '/prompt')"},
            {"Prompt", "()"},
            {"Dismiss", "()"},
            {"Completed", "(false, <@ao []>)"},
            {"Locked", "(<true>,)"},
            {"Locked afterwards", "(<false>,)"}});
        service.play(with(script));
        return store.unlock({}, limit);
    };

    using enum KeychainStatus;
    EXPECT_EQ(unlocked({}), success);
    EXPECT_EQ(unlocked({{"ReadAlias", "(objectpath '/',)"}}), success);
    EXPECT_EQ(unlocked({{"Locked afterwards", "(<true>,)"}}), notAvailable);
    EXPECT_EQ(unlocked({{"Completed", "(true, <''>)"}}), userCancelled);
    EXPECT_EQ(unlocked({{"Completed", "('yes',)"}}), userCancelled);
    EXPECT_EQ(unlocked({{"Completed", ""}}, 300ms), userCancelled);
    EXPECT_EQ(unlocked({{"Unlock", "('x',)"}}), damaged);

    // No other store has a thread by then: the one that appears is the unlocking's.
    SecretServiceItemStore ending({.lockFolder = bus.lockFolder(), .busAddress = bus.busAddress()});
    store.shutdown();
    service.play(with({{"Unlock", "(@ao [], objectpath '/prompt')"},
                       {"ReadAlias", "(objectpath '/org/freedesktop/secrets/collection/c',)"},
                       {"Prompt", "()"},
                       {"Dismiss", "()"},
                       {"Completed", ""},
                       {"Locked", "(<true>,)"}}));
    std::atomic<bool> isOver = false;
    std::jthread unlocking(
        [&]
        {
            EXPECT_EQ(ending.unlock({}, 60s), notAvailable);
            isOver = true;
        });
    while (!isOver && !hasThread("tessera-glib"))
        std::this_thread::yield();
    ending.shutdown();
    EXPECT_FALSE(hasThread("tessera-glib"));
    EXPECT_EQ(ending.unlock(), notAvailable);
}

}  // namespace
