#include "tests/Tessera/Session/SessionHost.hpp"

#include "Tessera/Session/SessionMachine.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"
#include "tests/support/SecretText.hpp"

#include <gtest/gtest.h>
#include <boost/describe/enum_to_string.hpp>

#include <functional>

using namespace tessera;
using platform::Date;

namespace
{

using Cause = AccountTransitionCause;
using Status = AccountRefreshStatus;
using Stored = SessionMachine::StoredToken;

constexpr Date now{10'000};

JWTDecoder& decoder()
{
    static JWTDecoder shared;
    return shared;
}

AccountTokenJWT token(const std::string& user)
{
    return decoder().decode<AccountToken>(bytesOf(SessionHost::token(user)));
}

AccountInfoJWT info(const std::string& user)
{
    return decoder().decode<AccountInfo>(bytesOf(SessionHost::info(user)));
}

/// Brings a fresh machine into a situation, by the inputs that lead there.
using Way = std::function<void(SessionMachine&)>;

const auto loading = [](SessionMachine&) {};
const auto failed = [](SessionMachine& machine)
{
    machine.refreshStarts();
    machine.refreshFailed({"No.", false, false}, now);
};
const auto pending = [](SessionMachine& machine)
{
    machine.tokenKnown(bytes("known"));
    machine.restored({.token = token("anna"), .info = {}}, Cause::restored);
};
const auto signedIn = [](SessionMachine& machine)
{
    machine.tokenKnown(bytes("known"));
    machine.restored({.token = token("anna"), .info = info("anna")}, Cause::restored);
};
const auto signedOut = [](SessionMachine& machine)
{
    machine.tokenKnown(std::nullopt);
    machine.restored({}, Cause::restored);
};
Way refreshed(double ago)
{
    return [ago](SessionMachine& machine)
    { machine.refreshed(token("anna"), info("anna"), now + -ago); };
}
Way then(Way first, Way second)
{
    return [first, second](SessionMachine& machine)
    {
        first(machine);
        second(machine);
    };
}
const auto refreshing = [](SessionMachine& machine) { machine.refreshStarts(); };
const auto signingIn = [](SessionMachine& machine) { machine.signInBegins(); };
const auto failing = [](SessionMachine& machine)
{
    machine.refreshStarts();
    machine.refreshFailed({"No.", false, false}, now);
};

SessionMachine machineAfter(const Way& way)
{
    SessionMachine machine;
    way(machine);
    return machine;
}

std::string text(const Status& status)
{
    if (status.is<Status::Pending>())
        return "pending";
    if (status.is<Status::Refreshing>())
        return "refreshing";
    return status.is<Status::Completed>() ? "completed" : "failed";
}

}  // namespace

TEST(SessionMachine, DecidesOnActivation)
{
    struct Row
    {
        const char* name;
        Way situation;
        bool refreshes;
    };
    const Row rows[] = {
        {"loading, pending", loading, true},
        {"failed", failed, true},
        {"pending, pending", pending, true},
        {"pending, failed", then(pending, failing), true},
        {"signedIn, pending", signedIn, true},
        {"signedIn, failed", then(signedIn, failing), true},
        {"signedOut, pending", signedOut, false},
        {"signedIn, refreshing", then(signedIn, refreshing), false},
        {"completed 3599 s ago", refreshed(3599), false},
        {"completed 3600 s ago", refreshed(3600), true},
        {"completed in the future", refreshed(-86400), false},
        {"signedOut, completed long ago",
         [](SessionMachine& machine)
         {
             machine.signOutBegins(Date{0});
             machine.signedOut(Cause::signedOut);
         },
         false},
        {"during a sign-in", then(signedIn, signingIn), false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(machineAfter(row.situation).refreshesOnActivation(now), row.refreshes)
            << row.name;
}

TEST(SessionMachine, AnswersWhoAsksForARefresh)
{
    using Answer = SessionMachine::RefreshAnswer;
    struct Row
    {
        const char* name;
        Way situation;
        Answer unforced, forced;
    };
    const Row rows[] = {
        {"loading", loading, Answer::start, Answer::start},
        {"signedOut", signedOut, Answer::start, Answer::start},
        {"signedIn", signedIn, Answer::start, Answer::start},
        {"fresh", refreshed(3599), Answer::notDue, Answer::start},
        {"due", refreshed(3600), Answer::start, Answer::start},
        {"failed", then(refreshed(1), failing), Answer::start, Answer::start},
        {"refreshing", then(signedIn, refreshing), Answer::join, Answer::join},
        {"during a sign-in", then(signedIn, signingIn), Answer::waitForSignIn,
         Answer::waitForSignIn},
    };
    for (const auto& row : rows)
    {
        EXPECT_EQ(machineAfter(row.situation).refreshAsked(false, now), row.unforced) << row.name;
        EXPECT_EQ(machineAfter(row.situation).refreshAsked(true, now), row.forced) << row.name;
    }
}

TEST(SessionMachine, TurnsEachInputIntoAStateAndOrders)
{
    using Input = std::function<SessionOrders(SessionMachine&)>;
    struct Row
    {
        const char* name;
        Way situation;
        Input input;
        const char* becomes;
    };
    const auto fails = [](bool isRefusal, bool tokenIsUnusable) -> Input
    {
        return [=](SessionMachine& machine)
        { return machine.refreshFailed({"No.", isRefusal, tokenIsUnusable}, now); };
    };
    const auto restored = [](std::optional<AccountTokenJWT> ofToken,
                             std::optional<AccountInfoJWT> ofInfo, bool unusable = false,
                             Cause cause = Cause::restored) -> Input
    {
        return [=](SessionMachine& machine)
        { return machine.restored({ofToken, ofInfo, unusable}, cause); };
    };
    const auto withoutInfo = [](std::optional<std::string> message) -> Input
    {
        return [=](SessionMachine& machine)
        { return machine.signedInWithoutInfo(token("anna"), message, now); };
    };
    const auto refreshes = [](SessionMachine& machine)
    { return machine.refreshed(token("anna"), info("anna"), now); };
    const auto signsIn = [](SessionMachine& machine)
    { return machine.signedIn(token("anna"), info("anna"), now); };
    const auto signsOut = [](SessionMachine& machine)
    {
        machine.signOutBegins(now);
        return machine.signedOut(Cause::signedOut);
    };
    const auto signsOutElsewhere = [](SessionMachine& machine)
    {
        machine.followBegins();
        return machine.signedOutElsewhere(now);
    };
    const auto anna = token("anna");
    const auto elsewhere = Cause::otherProgramSignedIn;
    const Row rows[] = {
        {"nothing stored", loading, restored({}, {}),
         "signedOut pending noStoredSession removeInfo"},
        {"a token alone", loading, restored(anna, {}), "pending:anna pending restored"},
        {"token and information", loading, restored(anna, info("anna")),
         "signedIn:anna/local pending restored"},
        {"another user's information", loading, restored(anna, info("bert")),
         "pending:anna pending storedInfoRejected removeInfo"},
        {"unusable information", loading, restored(anna, {}, true),
         "pending:anna pending storedInfoRejected removeInfo"},
        {"another program's sign-in", then(refreshed(1), refreshing),
         restored(token("bert"), info("anna"), false, elsewhere),
         "pending:bert refreshing otherProgramSignedIn removeInfo"},
        {"gone again while followed", then(signedIn, refreshing),
         restored({}, {}, false, elsewhere),
         "signedOut refreshing otherProgramSignedOut removeInfo"},

        {"failure, loading", then(loading, refreshing), fails(false, false),
         "failed failed refreshFailed retry"},
        {"failure, failed", then(failed, refreshing), fails(false, false),
         "failed failed refreshFailed retry"},
        {"failure, pending", then(pending, refreshing), fails(false, false),
         "pending:anna! failed refreshFailed retry"},
        {"failure, signedIn", then(signedIn, refreshing), fails(false, false),
         "signedIn:anna/local failed - retry"},
        {"failure, signedOut", then(signedOut, refreshing), fails(false, false),
         "signedOut completed -"},
        {"refusal, signedIn", then(signedIn, refreshing), fails(true, false),
         "signedIn:anna/local failed - retry"},
        {"refusal, pending", then(pending, refreshing), fails(true, false),
         "pending:anna! failed refreshRefused retry"},
        {"another program's token cannot be used", then(signedIn, refreshing), fails(false, true),
         "failed failed refreshFailed retry"},
        {"success, pending", then(pending, refreshing), refreshes,
         "signedIn:anna/remote completed refreshed"},

        {"sign-in", then(signedOut, signingIn), signsIn, "signedIn:anna/remote completed signedIn"},
        {"sign-in without information", then(signedOut, signingIn), withoutInfo("No."),
         "pending:anna! failed signedInWithoutInfo retry"},
        {"cancelled sign-in", then(signedOut, signingIn), withoutInfo({}),
         "pending:anna failed signInCancelled retry"},
        {"sign-out", then(signedIn, refreshing), signsOut, "signedOut completed signedOut"},
        {"another program's sign-out", then(signedIn, refreshing), signsOutElsewhere,
         "signedOut completed otherProgramSignedOut removeInfo"},
    };
    for (const auto& row : rows)
    {
        auto machine = machineAfter(row.situation);
        const auto orders = row.input(machine);
        const auto cause =
            orders.publish ? boost::describe::enum_to_string(*orders.publish, "?") : "-";
        EXPECT_EQ(::text(machine.state()) + " " + text(machine.refreshStatus()) + " " + cause +
                      (orders.removeInfo ? " removeInfo" : "") +
                      (orders.scheduleRetry ? " retry" : ""),
                  row.becomes)
            << row.name;
    }
}

TEST(SessionMachine, TellsAStoredTokenFromTheKnownOne)
{
    const auto unknown = [](Way way)
    {
        return then(std::move(way),
                    [](SessionMachine& machine) { machine.tokenLeftBehind(std::nullopt); });
    };
    const auto signsOut = [](SessionMachine& machine)
    {
        machine.signOutBegins(now);
        machine.signedOut(Cause::signedOut);
    };
    struct Row
    {
        const char* name;
        Way situation;
        std::optional<platform::SecretBytes> read;
        Stored found;
        bool announced = false;
    };
    const Row rows[] = {
        {"the same", signedIn, bytes("known"), Stored::known},
        {"another", signedIn, bytes("other"), Stored::another},
        {"gone", signedIn, std::nullopt, Stored::gone},
        {"signed out, none", signedOut, std::nullopt, Stored::known},
        {"signed out, one", signedOut, bytes("other"), Stored::another},
        {"never read", loading, bytes("other"), Stored::another},
        {"never read, none", loading, std::nullopt, Stored::gone},
        {"never read, during a sign-in", then(loading, signingIn), bytes("other"), Stored::known},
        {"left behind, never read", unknown(signsOut), bytes("left"), Stored::known},
        {"announced since", unknown(signsOut), bytes("new"), Stored::another, true},
        {"left behind", unknown(then(signedIn, signsOut)), bytes("known"), Stored::known},
        {"another program's", unknown(then(signedIn, signsOut)), bytes("other"), Stored::another},
    };
    for (const auto& row : rows)
    {
        auto machine = machineAfter(row.situation);
        for (const char* time : {"once", "once more"})
            EXPECT_EQ(machine.tokenRead(row.read, row.announced), row.found)
                << row.name << ", " << time;
    }
}

TEST(SessionMachine, BeginsGenerationsAndTakesBackARefreshThatTheyInterrupt)
{
    struct Row
    {
        Way begins;
        const char* status;
    };
    const Row rows[] = {
        {[](SessionMachine& machine) { machine.signInBegins(); }, "pending"},
        {[](SessionMachine& machine) { machine.followBegins(); }, "pending"},
        {[](SessionMachine& machine) { machine.signOutBegins(now); }, "completed"},
        {[](SessionMachine& machine)
         {
             machine.refreshCancelled();
             machine.released();
         },
         "pending"},
    };
    for (const auto& row : rows)
    {
        auto machine = machineAfter(then(signedIn, refreshing));
        const auto before = machine.generation();
        row.begins(machine);
        EXPECT_EQ(machine.generation(), before + 1);
        EXPECT_EQ(text(machine.refreshStatus()), row.status);
    }
}
