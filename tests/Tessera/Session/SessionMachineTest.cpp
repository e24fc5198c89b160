#include "tests/Tessera/Session/SessionHost.hpp"

#include "Tessera/Session/SessionMachine.hpp"
#include "Tessera/Tokens/JWTDecoder.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <ostream>

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

platform::SecretBytes bytes(std::string_view text)
{
    return platform::SecretBytes(bytesOf(text));
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
    struct Row
    {
        const char* name;
        Way situation;
        std::function<SessionOrders(SessionMachine&)> input;
        const char* state;
        const char* status;
        SessionOrders orders;
    };
    const auto fails = [](SessionMachine& machine)
    { return machine.refreshFailed({"No.", false, false}, now); };
    const auto isRefused = [](SessionMachine& machine)
    { return machine.refreshFailed({"No.", true, false}, now); };
    const auto restore = [](std::optional<AccountTokenJWT> ofToken,
                            std::optional<AccountInfoJWT> ofInfo, bool unusable, Cause cause)
    {
        return [=](SessionMachine& machine)
        { return machine.restored({ofToken, ofInfo, unusable}, cause); };
    };
    const Row rows[] = {
        {"nothing stored",
         loading,
         restore({}, {}, false, Cause::restored),
         "signedOut",
         "pending",
         {Cause::noStoredSession, true, false}},
        {"a token alone",
         loading,
         restore(token("anna"), {}, false, Cause::restored),
         "pending:anna",
         "pending",
         {Cause::restored, false, false}},
        {"token and information",
         loading,
         restore(token("anna"), info("anna"), false, Cause::restored),
         "signedIn:anna/local",
         "pending",
         {Cause::restored, false, false}},
        {"another user's information",
         loading,
         restore(token("anna"), info("bert"), false, Cause::restored),
         "pending:anna",
         "pending",
         {Cause::storedInfoRejected, true, false}},
        {"unusable information",
         loading,
         restore(token("anna"), {}, true, Cause::restored),
         "pending:anna",
         "pending",
         {Cause::storedInfoRejected, true, false}},
        {"another program's sign-in",
         then(refreshed(1), refreshing),
         restore(token("bert"), info("anna"), false, Cause::otherProgramSignedIn),
         "pending:bert",
         "refreshing",
         {Cause::otherProgramSignedIn, true, false}},
        {"gone again while followed",
         then(signedIn, refreshing),
         restore({}, {}, false, Cause::otherProgramSignedIn),
         "signedOut",
         "refreshing",
         {Cause::otherProgramSignedOut, true, false}},

        {"failure, loading",
         then(loading, refreshing),
         fails,
         "failed",
         "failed",
         {Cause::refreshFailed, false, true}},
        {"failure, failed",
         then(failed, refreshing),
         fails,
         "failed",
         "failed",
         {Cause::refreshFailed, false, true}},
        {"failure, pending",
         then(pending, refreshing),
         fails,
         "pending:anna!",
         "failed",
         {Cause::refreshFailed, false, true}},
        {"failure, signedIn",
         then(signedIn, refreshing),
         fails,
         "signedIn:anna/local",
         "failed",
         {std::nullopt, false, true}},
        {"failure, signedOut",
         then(signedOut, refreshing),
         fails,
         "signedOut",
         "completed",
         {std::nullopt, false, false}},
        {"refusal, signedIn",
         then(signedIn, refreshing),
         isRefused,
         "signedIn:anna/local",
         "failed",
         {std::nullopt, false, true}},
        {"refusal, pending",
         then(pending, refreshing),
         isRefused,
         "pending:anna!",
         "failed",
         {Cause::refreshRefused, false, true}},
        {"another program's token cannot be used",
         then(signedIn, refreshing),
         [](SessionMachine& machine) { return machine.refreshFailed({"No.", false, true}, now); },
         "failed",
         "failed",
         {Cause::refreshFailed, false, true}},
        {"success, pending",
         then(pending, refreshing),
         [](SessionMachine& machine)
         { return machine.refreshed(token("anna"), info("anna"), now); },
         "signedIn:anna/remote",
         "completed",
         {Cause::refreshed, false, false}},

        {"sign-in",
         then(signedOut, signingIn),
         [](SessionMachine& machine) { return machine.signedIn(token("anna"), info("anna"), now); },
         "signedIn:anna/remote",
         "completed",
         {Cause::signedIn, false, false}},
        {"sign-in without information",
         then(signedOut, signingIn),
         [](SessionMachine& machine)
         { return machine.signedInWithoutInfo(token("anna"), "No.", now); },
         "pending:anna!",
         "failed",
         {Cause::signedInWithoutInfo, false, true}},
        {"cancelled sign-in",
         then(signedOut, signingIn),
         [](SessionMachine& machine)
         { return machine.signedInWithoutInfo(token("anna"), std::nullopt, now); },
         "pending:anna",
         "failed",
         {Cause::signInCancelled, false, true}},

        {"sign-out",
         then(signedIn, refreshing),
         [](SessionMachine& machine)
         {
             machine.signOutBegins(now);
             return machine.signedOut(Cause::signedOut);
         },
         "signedOut",
         "completed",
         {Cause::signedOut, false, false}},
        {"another program's sign-out",
         then(signedIn, refreshing),
         [](SessionMachine& machine)
         {
             machine.followBegins();
             return machine.signedOutElsewhere(now);
         },
         "signedOut",
         "completed",
         {Cause::otherProgramSignedOut, true, false}},
    };
    for (const auto& row : rows)
    {
        auto machine = machineAfter(row.situation);
        const auto orders = row.input(machine);
        EXPECT_EQ(::text(machine.state()), row.state) << row.name;
        EXPECT_EQ(text(machine.refreshStatus()), row.status) << row.name;
        EXPECT_TRUE(orders == row.orders) << row.name;
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
    const Way neverRead = signsOut;
    struct Row
    {
        const char* name;
        Way situation;
        std::optional<platform::SecretBytes> read;
        Stored found, foundAgain;
    };
    const Row rows[] = {
        {"the same", signedIn, bytes("known"), Stored::known, Stored::known},
        {"another", signedIn, bytes("other"), Stored::another, Stored::another},
        {"gone", signedIn, std::nullopt, Stored::gone, Stored::gone},
        {"signed out, none", signedOut, std::nullopt, Stored::known, Stored::known},
        {"signed out, one", signedOut, bytes("other"), Stored::another, Stored::another},
        {"never read", loading, bytes("other"), Stored::another, Stored::another},
        {"never read, none", loading, std::nullopt, Stored::gone, Stored::gone},
        {"never read, during a sign-in", then(loading, signingIn), bytes("other"), Stored::known,
         Stored::known},
        {"left behind by a sign-out, never read", unknown(neverRead), bytes("left"), Stored::known,
         Stored::known},
        {"left behind by a sign-out", unknown(then(signedIn, signsOut)), bytes("known"),
         Stored::known, Stored::known},
        {"another program's after that", unknown(then(signedIn, signsOut)), bytes("other"),
         Stored::another, Stored::another},
    };
    for (const auto& row : rows)
    {
        auto machine = machineAfter(row.situation);
        EXPECT_EQ(machine.tokenRead(row.read), row.found) << row.name;
        EXPECT_EQ(machine.tokenRead(row.read), row.foundAgain) << row.name;
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
