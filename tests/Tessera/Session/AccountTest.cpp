#include "tests/Tessera/Session/SessionHost.hpp"

#include <gmock/gmock.h>

using namespace tessera;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

using Operation = ScriptedKeychain::Operation;

struct Session : testing::Test
{
    Machine machine;
    SessionHost host{machine};
};

/// Runs a sign-in by this many pieces of work, with good answers from the server.
void drive(SessionHost& program, const Call<AccountState>& call, std::size_t pieces)
{
    auto& executor = program.machine.executor;
    for (std::size_t done = 0; done < pieces && call.ends() == 0; ++done)
    {
        for (const auto& transfer : program.network->started)
            if (!transfer->ended() && executor.isIdle())
                transfer->answer(200, transfer->request.url.string().ends_with("/auth")
                                          ? SessionHost::token("anna")
                                          : SessionHost::info("anna"));
        executor.drain(1);
    }
}

}  // namespace

TEST_F(Session, SignsInOnceAndIsFoundAgainAtTheNextLaunch)
{
    const auto call = host.signIn();
    EXPECT_THAT(host.takeRequests(), ElementsAre("/auth"));
    host.answer("/auth", 200, host.token("anna"));
    EXPECT_EQ(host.stored("Token"), host.token("anna")) << "before the information is there";
    EXPECT_THAT(host.takeRequests(), ElementsAre("/account*"));
    host.answer("/account", 200, host.info("anna"));

    EXPECT_EQ(text(call->value()), "signedIn:anna/remote");
    EXPECT_THAT(host.published, ElementsAre("signedIn:anna/remote"));

    host.launchAgain();
    EXPECT_EQ(host.state(), "loading");
    host.launch();
    EXPECT_EQ(host.state(), "signedIn:anna/local");
    EXPECT_THAT(host.takeRequests(), IsEmpty());
}

TEST_F(Session, RestoresWhatTheKeychainHolds)
{
    struct Row
    {
        std::optional<std::string> token, info;
        const char* state;
        bool keepsInfo;
    };
    const auto anna = SessionHost::token("anna");
    const Row rows[] = {
        {std::nullopt, std::nullopt, "signedOut", false},
        {std::nullopt, host.info("anna"), "signedOut", false},
        {anna, std::nullopt, "pending:anna", false},
        {anna, host.info("anna"), "signedIn:anna/local", true},
        {anna, host.info("bert"), "pending:anna", false},
        {anna, host.info("anna", "a@b", "other.mac"), "pending:anna", false},
        {anna, "damaged", "pending:anna", false},
        {"damaged", std::nullopt, "loading", false},
        {"\xff\xfe", host.info("anna"), "loading", true},
        {anna.substr(0, anna.size() - 8) + "AAAAAAAA", host.info("anna"), "loading", true},
    };
    for (const auto& row : rows)
    {
        Machine fresh;
        SessionHost program(fresh);
        if (row.token)
            program.store("Token", *row.token);
        if (row.info)
            program.store("Info", *row.info);
        program.onMainDo([&] { program.account->applicationWillFinishLaunching(); });
        fresh.settle();

        EXPECT_EQ(program.state(), row.state);
        EXPECT_EQ(program.stored("Info").has_value(), row.keepsInfo) << row.state;
        EXPECT_EQ(program.stored("Token"), row.token);
    }
}

TEST_F(Session, AKeychainThatCannotBeReadIsNeverSignedOut)
{
    host.store("Token", host.token("anna"));
    machine.items->fail(platform::KeychainStatus::interactionNotAllowed);
    host.launch();
    EXPECT_EQ(host.state(), "loading");
    EXPECT_EQ(host.account->diagnostic()->code, AccountDiagnosticCode::keychainUnreadable);

    host.activate();
    EXPECT_EQ(host.state(), "failed");
    machine.advance(0.5);
    machine.items->fail(std::nullopt);
    const auto refresh = host.refresh();
    host.activate();
    EXPECT_EQ(host.state(), "pending:anna");
    EXPECT_EQ(host.account->diagnostic(), std::nullopt);
    EXPECT_EQ(refresh->error(), "") << "what is read is no other program's sign-in";
}

TEST_F(Session, WaitsOneTwoFourAndEightSecondsForTheInformation)
{
    const auto call = host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    for (const double wait : {1, 2, 4, 8})
    {
        EXPECT_THAT(host.takeRequests(), testing::Contains("/account*"));
        host.answer("/account", 500, "");
        machine.advance(wait - 0.001);
        EXPECT_THAT(host.takeRequests(), IsEmpty()) << wait;
        machine.advance(0.001);
    }
    host.answer("/account", 500, "");

    EXPECT_EQ(text(call->value()), "pending:anna!");
    EXPECT_EQ(host.stored("Token"), host.token("anna"));
}

TEST_F(Session, RetriesAFailedRefreshFourTimesAndNoMore)
{
    host.signInAs("anna");
    const auto call = host.refresh();
    host.answerRefused("/account", "unauthorized");
    EXPECT_EQ(call->error(), "AccountRemoteError.unauthorized");
    EXPECT_EQ(host.state(), "signedIn:anna/remote") << "the last good profile stays";
    EXPECT_EQ(host.account->diagnostic()->code, AccountDiagnosticCode::sessionRefused);

    host.takeRequests();
    for (const double wait : {1, 2, 4})
    {
        host.answer("/account", 500, "");
        EXPECT_THAT(host.takeRequests(), IsEmpty());
        machine.advance(wait);
        EXPECT_THAT(host.takeRequests(), ElementsAre("/account*"));
    }
    host.answer("/account", 500, "");
    machine.advance(3000);
    EXPECT_THAT(host.takeRequests(), IsEmpty());
    EXPECT_EQ(machine.clock->timers(), 0U);

    host.activate();
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.account->diagnostic(), std::nullopt);
}

TEST_F(Session, CallersThatOverlapShareOneRefresh)
{
    host.signInAs("anna");
    const auto first = host.refresh();
    const auto second = host.refresh(false);
    host.activate();
    EXPECT_THAT(host.takeRequests(), ElementsAre("/account*"));
    host.answer("/account", 200, host.info("anna"));

    EXPECT_TRUE(first->succeeded() && second->succeeded());
    const auto third = host.refresh(false);
    machine.settle();
    EXPECT_TRUE(third->succeeded());
    EXPECT_THAT(host.takeRequests(), IsEmpty()) << "none is due";
}

TEST_F(Session, IsRefreshedOnActivationAfterAnHour)
{
    host.signInAs("anna");
    machine.clock->setNow(machine.clock->now() + 3599);
    host.activate();
    EXPECT_THAT(host.takeRequests(), IsEmpty());
    machine.clock->setNow(machine.clock->now() + 1);
    host.activate();
    EXPECT_THAT(host.takeRequests(), ElementsAre("/account*"));
}

TEST_F(Session, EndsInPendingOrSignedOutWhenTheInformationIsNotForIt)
{
    auto call = host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    host.answer("/account", 200, host.info("anna", "a@b", "other.mac"));
    EXPECT_EQ(text(call->value()), "pending:anna!");

    call = host.signIn();
    host.answer("/auth", 200, host.token("anna", "s2"));
    host.takeRequests();
    host.answer("/account", 200, host.info("bert"));
    EXPECT_EQ(text(call->value()), "signedOut");
    EXPECT_EQ(host.stored("Token"), std::nullopt);
    EXPECT_THAT(host.takeRequests(), ElementsAre("DELETE /auth*"));
}

TEST_F(Session, SignOutWinsOverASignInAtEveryPoint)
{
    // After each number of pieces of work, the host signs out.
    for (std::size_t pieces = 0; pieces < 60; ++pieces)
    {
        Machine fresh;
        SessionHost program(fresh);
        const auto call = program.signIn();
        drive(program, *call, pieces);
        const bool wasSignedIn = program.state() == "signedIn:anna/remote";
        program.onMainDo([&] { program.account->signOut(); });
        fresh.settle();
        for (const auto& transfer : program.network->started)
            transfer->answer(200, program.info("anna"));
        fresh.settle();

        EXPECT_EQ(call->ends(), 1);
        EXPECT_EQ(call->succeeded(), wasSignedIn) << pieces;
        EXPECT_EQ(call->error(), wasSignedIn ? "" : "CancellationError") << pieces;
        EXPECT_EQ(program.state(), "signedOut") << pieces;
        EXPECT_EQ(program.stored("Token"), std::nullopt) << pieces;
        EXPECT_EQ(program.stored("Info"), std::nullopt) << pieces;
    }
}

TEST_F(Session, MayBeReleasedAtEveryPoint)
{
    for (std::size_t pieces = 0; pieces < 60; ++pieces)
    {
        Machine fresh;
        SessionHost program(fresh);
        const auto call = program.signIn();
        drive(program, *call, pieces);
        const auto requests = program.network->started.size();
        const auto states = program.published.size();
        program.release();
        fresh.settle();

        EXPECT_EQ(call->ends(), 1) << pieces;
        EXPECT_EQ(program.network->started.size(), requests) << pieces;
        EXPECT_EQ(program.published.size(), states) << pieces;
        EXPECT_EQ(fresh.clock->timers(), 0U) << pieces;
    }
}

TEST_F(Session, ASignInThatIsCancelledAfterItsTokenWasStoredIsPending)
{
    const auto call = host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    host.cancelLastCall();
    machine.settle();

    EXPECT_EQ(call->error(), "CancellationError");
    EXPECT_EQ(host.state(), "pending:anna");
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.state(), "signedIn:anna/remote") << "the retry goes on";
}

TEST_F(Session, KeepsTheStateWhenTheTokenCannotBeStored)
{
    host.launch();
    const auto call = host.signIn();
    machine.settle();
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.answer("/auth", 200, host.token("anna"));

    EXPECT_EQ(call->error(), "AccountError.keychainAccess");
    EXPECT_EQ(host.state(), "signedOut");
    EXPECT_THAT(host.takeRequests(), ElementsAre("/auth", "DELETE /auth*"));
}

TEST_F(Session, AFailedWriteOfTheInformationIsMadeGoodByTheNextRefresh)
{
    const auto call = host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(text(call->value()), "signedIn:anna/remote");
    EXPECT_EQ(host.account->diagnostic()->code, AccountDiagnosticCode::infoNotStored);

    machine.items->fail(std::nullopt);
    host.refresh();
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.stored("Info"), host.info("anna"));
    EXPECT_EQ(host.account->diagnostic(), std::nullopt);
}

TEST_F(Session, AWrongCodeChangesNothingAndResumesWhatItInterrupted)
{
    host.signInAs("anna");
    const auto refresh = host.refresh();
    machine.settle();
    const auto call = host.signIn();
    machine.settle();
    EXPECT_EQ(refresh->error(), "CancellationError");
    host.takeRequests();
    host.answerRefused("/auth");

    EXPECT_EQ(call->ends(), 1);
    EXPECT_EQ(host.state(), "signedIn:anna/remote");
    EXPECT_THAT(host.takeRequests(), ElementsAre("/account*"));
    host.answer("/account", 200, host.info("anna"));

    machine.advance(3600);
    host.signIn();
    host.activate();
    host.takeRequests();
    host.answerRefused("/auth");
    EXPECT_THAT(host.takeRequests(), ElementsAre("/account*")) << "due since the activation";
}

TEST_F(Session, AttachesTheAddressToAnAnonymousAccountAlone)
{
    auto call = host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    host.answer("/account", 200, host.info("anna", ""));
    host.takeRequests();
    call = host.signIn();
    EXPECT_THAT(host.takeRequests(), ElementsAre("/auth*"));
    host.answer("/auth", 200, host.token("anna", "s2"));
    host.answer("/account", 200, host.info("anna"));
    host.takeRequests();
    call = host.signIn();
    EXPECT_THAT(host.takeRequests(), ElementsAre("/auth"));
}

TEST_F(Session, DeletesTheAccountAndThenSignsOut)
{
    auto call = host.start<void>(host.onMain([&] { return host.account->deleteAccount(); }));
    machine.settle();
    EXPECT_EQ(call->error(), "AccountError.accountRequired");
    EXPECT_THAT(host.takeRequests(), IsEmpty());

    host.signInAs("anna");
    call = host.start<void>(host.onMain([&] { return host.account->deleteAccount(); }));
    host.answerRefused("DELETE /account");
    EXPECT_EQ(host.state(), "signedIn:anna/remote");
    call = host.start<void>(host.onMain([&] { return host.account->deleteAccount(); }));
    host.answer("DELETE /account", 204, "");
    EXPECT_TRUE(call->succeeded());
    EXPECT_EQ(host.state(), "signedOut");
}

TEST_F(Session, TheNewsletterBelongsToTheUser)
{
    using Status = Account::NewsletterStatus;
    host.signInAs("anna");
    const auto subscribe = [&]
    { return host.start<void>(host.onMain([&] { return host.account->requestNewsletter(); })); };

    auto call = subscribe();
    machine.settle();
    EXPECT_EQ(host.account->newsletterStatus(), Status::submitting);
    host.answerRefused("/account/newsletter");
    EXPECT_EQ(host.account->newsletterStatus(), Status::idle);
    EXPECT_EQ(call->ends(), 1);

    call = subscribe();
    host.answer("/account/newsletter", 200, "");
    EXPECT_EQ(host.account->newsletterStatus(), Status::subscribed);
    host.signInAs("bert");
    EXPECT_EQ(host.account->newsletterStatus(), Status::idle);

    call = subscribe();
    machine.settle();
    host.signOut();
    EXPECT_EQ(call->error(), "CancellationError");
    EXPECT_EQ(host.account->newsletterStatus(), Status::idle);
}

TEST_F(Session, ConsentIsFollowedByARefresh)
{
    host.signInAs("anna");
    const auto call =
        host.start<void>(host.onMain([&] { return host.account->consentToTerms("2", "en"); }));
    host.answer("/legal/terms/consent", 200, "");
    EXPECT_TRUE(call->succeeded());
    EXPECT_THAT(host.takeRequests(), ElementsAre("/legal/terms/consent*", "/account*"));
}

TEST_F(Session, TakesATokenFromElsewhereAndReportsOneThatIsNone)
{
    host.onMainDo([&] { host.account->authenticate(platform::SecretString("nonsense")); });
    machine.settle();
    EXPECT_EQ(host.account->diagnostic()->code, AccountDiagnosticCode::authenticationFailed);
    EXPECT_EQ(host.state(), "loading");

    host.onMainDo([&] { host.account->authenticate(platform::SecretString(host.token("anna"))); });
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.state(), "signedIn:anna/remote");

    host.takeRequests();
    host.onMainDo([&] { host.account->deauthenticate(); });
    machine.settle();
    EXPECT_EQ(host.state(), "signedOut");
    EXPECT_THAT(host.takeRequests(), IsEmpty());
}

TEST_F(Session, StopsTheProcessWhenItIsUsedOffTheMainThread)
{
    EXPECT_DEATH(host.account->signOut(), "Tessera/Account");
    host.client.localizedKeychainIdentifier.clear();
    EXPECT_DEATH(host.launchAgain(), "localizedKeychainIdentifier");
}

TEST_F(Session, RequiresALoginOfPrereleasesAlone)
{
    using Channel = AccountReleaseChannel;
    for (const auto channel : {Channel::private_, Channel::alpha, Channel::beta, Channel::public_})
    {
        host.client.releaseChannel = channel;
        host.launchAgain();
        EXPECT_EQ(host.account->requireLogin(),
                  channel == Channel::alpha || channel == Channel::beta);
    }
}
