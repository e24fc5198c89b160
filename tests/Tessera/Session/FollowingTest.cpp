#include "tests/Tessera/Session/SessionHost.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <algorithm>

using namespace tessera;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// Two programs of one user.
struct Programs : testing::Test
{
    Machine machine;
    SessionHost editor{machine, "editor"};
    SessionHost viewer{machine, "viewer"};

    Programs()
    {
        viewer.client.localizedKeychainIdentifier = "Viewer";
        viewer.launchAgain();
    }

    static std::string viewersInfo(const std::string& user)
    {
        return SessionHost::info(user, "a@example.org", "viewer.mac");
    }
    std::size_t readsOf(SessionHost& host)
    {
        const auto calls = host.keychain->takeCalls();
        return static_cast<std::size_t>(std::ranges::count_if(
            calls, [](const std::string& call)
            { return call.starts_with("copy") && call.find("Token") != call.npos; }));
    }
};

}  // namespace

TEST_F(Programs, FollowEachOthersSignInAndSignOut)
{
    viewer.launch();
    viewer.published.clear();
    editor.signInAs("anna");
    machine.settle();
    EXPECT_EQ(viewer.state(), "pending:anna") << "at once, without the server";
    EXPECT_THAT(viewer.takeRequests(), ElementsAre("/account*"));
    viewer.answer("/account", 200, viewersInfo("anna"));
    EXPECT_THAT(viewer.published, ElementsAre("pending:anna", "signedIn:anna/remote"));
    EXPECT_THAT(editor.takeRequests(), IsEmpty()) << "nobody follows what he has done himself";

    // A refresh that is under way belongs to the session that ends.
    viewer.refresh();
    viewer.answerRefused("/account");
    EXPECT_TRUE(viewer.account->diagnostic());
    const auto refresh = viewer.refresh();
    machine.settle();
    viewer.takeRequests();
    editor.signOut();
    machine.advance(0.1);
    EXPECT_EQ(viewer.state(), "signedOut");
    EXPECT_EQ(refresh->error(), "CancellationError");
    EXPECT_EQ(viewer.account->diagnostic(), std::nullopt);
    EXPECT_THAT(viewer.takeRequests(), IsEmpty()) << "the server is told once";
    EXPECT_THAT(editor.takeRequests(), ElementsAre("DELETE /auth*"));
    EXPECT_EQ(viewer.stored("Info"), std::nullopt);
    EXPECT_EQ(machine.clock->timers(), 1U) << "but for the pause between two reads";
}

TEST_F(Programs, FollowAnotherUserFromWhateverState)
{
    editor.signInAs("anna");
    viewer.answer("/account", 500, "");
    EXPECT_EQ(viewer.state(), "pending:anna!");
    editor.signInAs("bert");
    machine.advance(0.1);
    EXPECT_EQ(viewer.state(), "pending:bert");
    viewer.answer("/account", 200, viewersInfo("bert"));
    EXPECT_EQ(viewer.state(), "signedIn:bert/remote");

    // A token that is none is no session, and no sign-out either.
    editor.store("Token", "nonsense");
    viewer.activate();
    machine.advance(0.1);
    EXPECT_EQ(viewer.state(), "failed");
    EXPECT_EQ(viewer.stored("Token"), "nonsense");
    editor.store("Token", SessionHost::token("anna"));
    machine.advance(1);
    EXPECT_EQ(viewer.state(), "pending:anna") << "the retry reads again";
}

TEST_F(Programs, HealAMissedAnnouncementOnActivation)
{
    viewer.launch();
    editor.store("Token", SessionHost::token("anna"));
    viewer.activate();
    machine.settle();
    EXPECT_EQ(viewer.state(), "pending:anna");
}

TEST_F(Programs, RestoreOnceWhenALaunchMeetsASignInThatIsFollowed)
{
    for (std::size_t pieces = 0; pieces < 40; ++pieces)
    {
        Machine fresh;
        SessionHost program(fresh);
        program.store("Token", SessionHost::token("anna"));
        const auto other =
            fresh.announcements.device(1)->join(platform::executorOf(program.main), [](auto&) {});
        other->setString("1", "net.ostra.account.token.touched");
        other->synchronize();
        fresh.announcements.deliverAll();
        fresh.executor.drain(pieces);
        // Whoever reads again finds the session gone.
        using enum ScriptedKeychain::Operation;
        program.keychain->onCall(
            [&](const ScriptedKeychain::Call& call)
            {
                if (call.operation == copyMatching && !program.published.empty())
                    program.keychain->answer(copyMatching, platform::KeychainStatus::itemNotFound);
            });
        program.launch();
        const bool isAsking = std::ranges::any_of(
            program.network->started, [](const auto& transfer) { return !transfer->ended(); });
        EXPECT_EQ(program.state(), isAsking ? "pending:anna" : "signedOut") << pieces;
    }
}

TEST_F(Programs, ThatAreCopiesOfOneTellInTheirHistoryWhoSignedOut)
{
    const TemporaryFolder folder;
    SessionHost copy(machine);
    copy.services.keyValueStore = machine.announcements.device(1);
    for (auto* program : {&editor, &copy})
    {
        program->services.stateFolder = folder.path() / "state";
        program->launchAgain();
        program->launch();
    }
    editor.signInAs("anna");
    machine.advance(1);
    editor.signOut();
    machine.announcements.deliverAll();
    machine.advance(1);
    ASSERT_EQ(copy.state(), "signedOut");
    const auto lastCause = [&]
    {
        auto reading = editor.onMain([&] { return editor.account->history(); });
        const auto read = editor.start<std::vector<AccountTransition>>(std::move(reading));
        machine.settle();
        return read->value().back().cause;
    };
    EXPECT_EQ(lastCause(), AccountTransitionCause::signedOut);

    // What the destructor carries out is told, too.
    copy.release();
    editor.signInAs("anna");
    editor.onMainDo([&] { editor.account->deauthenticate(); });
    editor.launchAgain();
    editor.launch();
    EXPECT_EQ(editor.state(), "signedOut");
    EXPECT_EQ(lastCause(), AccountTransitionCause::deauthenticated);
}

TEST_F(Programs, WaitForTheKeychainToCatchUpAndGiveUpAfterFourReads)
{
    viewer.launch();
    const auto other =
        machine.announcements.device(1)->join(platform::executorOf(editor.main), [](auto&) {});
    const auto touch = [&]
    {
        other->setString("1", "net.ostra.account.token.touched");
        other->synchronize();
        machine.settle();
    };
    readsOf(viewer);
    touch();
    EXPECT_EQ(readsOf(viewer), 1U);
    for (const double wait : {1, 2, 4})
    {
        machine.advance(wait - 0.001);
        EXPECT_EQ(readsOf(viewer), 0U) << wait;
        machine.advance(0.001);
        EXPECT_EQ(readsOf(viewer), 1U) << wait;
    }
    machine.advance(1000);
    EXPECT_EQ(readsOf(viewer), 0U);

    touch();
    machine.advance(0.5);
    touch();
    editor.store("Token", SessionHost::token("anna"));
    machine.advance(1);
    EXPECT_EQ(viewer.state(), "pending:anna") << "by the second task, which began later";
}

TEST_F(Programs, ReadTenTimesASecondAtMostAndDoNotMissTheLastAnnouncement)
{
    viewer.launch();
    const auto other =
        machine.announcements.device(1)->join(platform::executorOf(editor.main), [](auto&) {});
    readsOf(viewer);
    for (int announcement = 0; announcement < 10'000; ++announcement)
    {
        other->setString(std::to_string(announcement), "net.ostra.account.token.touched");
        other->synchronize();
        machine.advance(0.0001);
    }
    EXPECT_LE(readsOf(viewer), 11U);
    EXPECT_THAT(viewer.takeRequests(), IsEmpty());

    editor.store("Token", SessionHost::token("anna"));
    other->setString("last", "net.ostra.account.token.touched");
    other->synchronize();
    machine.advance(0.1);
    EXPECT_EQ(viewer.state(), "pending:anna");
}

TEST_F(Programs, AreToldOfOtherKeysInVain)
{
    viewer.launch();
    readsOf(viewer);
    const auto other =
        machine.announcements.device(1)->join(platform::executorOf(editor.main), [](auto&) {});
    other->setString("1", "another.key");
    other->synchronize();
    machine.settle();
    EXPECT_EQ(readsOf(viewer), 0U);
}
