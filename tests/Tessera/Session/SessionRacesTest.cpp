#include "tests/Tessera/Session/SessionHost.hpp"

#include "Valet/Valet.hpp"

#include <gmock/gmock.h>

using namespace tessera;
using platform::SecretString;
using testing::ElementsAre;

namespace
{

using Newsletter = Account::NewsletterStatus;

/// What happens in an unlucky order: handlers that act, calls that overtake each other, accounts
/// that are let go.
struct Races : testing::Test
{
    Machine machine;
    SessionHost host{machine};
    platform::Subscription subscription;

    void onState(std::function<void(const AccountState&)> handler)
    {
        host.onMainDo(
            [&] { subscription = host.account->statePublisher().subscribe(std::move(handler)); });
    }
    void onNewsletter(std::function<void(Newsletter)> handler)
    {
        host.onMainDo(
            [&]
            {
                subscription =
                    host.account->newsletterStatusPublisher().subscribe(std::move(handler));
            });
    }
    std::shared_ptr<Call<void>> requestNewsletter()
    {
        return host.start<void>(host.onMain([&] { return host.account->requestNewsletter(); }));
    }
    void onDiagnostic(std::function<void(const std::optional<AccountDiagnostic>&)> handler)
    {
        host.onMainDo(
            [&]
            { subscription = host.account->diagnosticPublisher().subscribe(std::move(handler)); });
    }
    void removeToken()
    {
        valet::Valet::iCloudSharedGroupValetWithExplicitlySet(
            "group", "net.ostra.account", host.environment.localizedKeychainIdentifier,
            valet::CloudAccessibility::afterFirstUnlock, host.keychain)
            ->removeObject("Token");
    }
};

}  // namespace

TEST_F(Races, AnAccountIsLetGoDuringEachOfItsTasks)
{
    const std::function<void(SessionHost&)> situations[] = {
        [](SessionHost& program) { program.refresh(); },
        [](SessionHost& program)
        {
            program.refresh();
            program.answer("/account", 500, "");
            program.answer("/account", 500, "");
        },
        [](SessionHost& program) { program.activate(); },
        [](SessionHost& program)
        { program.onMainDo([&] { program.account->authenticate(SecretString("bad")); }); },
    };
    for (const auto& situation : situations)
    {
        Machine fresh;
        SessionHost program(fresh);
        program.signInAs("anna");
        situation(program);
        program.release();
        fresh.settle();
        program.takeRequests();
        fresh.advance(100);
        EXPECT_THAT(program.takeRequests(), testing::IsEmpty());
    }
}

TEST_F(Races, ARefreshThatASignInInterruptsBeforeItBeganIsTakenUpAgain)
{
    host.store("Token", host.token("anna"));
    host.onMainDo(
        [&]
        {
            host.account->applicationDidBecomeActive();
            host.account->authenticate(SecretString("bad"));
        });
    machine.settle();
    EXPECT_EQ(host.state(), "pending:anna");
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.state(), "signedIn:anna/remote");
}

TEST_F(Races, AHandlerLetsGoOfTheAccount)
{
    for (const bool signsOut : {true, false})
    {
        host.launchAgain();
        host.signInAs("anna");
        onState(
            [&](const AccountState& state)
            {
                if (state.get<AccountState::SignedOut>())
                    host.account.reset();
            });
        std::vector<std::string> heardLate;
        auto late = host.onMain(
            [&]
            {
                return host.account->statePublisher().subscribe(
                    [&](const AccountState& state) { heardLate.push_back(text(state)); });
            });
        host.onMainDo(
            [&]
            {
                if (signsOut)
                    return host.account->signOut();
                host.account->deauthenticate();
                host.account->authenticate(SecretString(host.token("bert")));
            });
        machine.settle();
        EXPECT_EQ(host.stored("Token"), std::nullopt);
        EXPECT_THAT(heardLate, ElementsAre("signedIn:anna/remote"));
    }
}

TEST_F(Races, AHandlerOfTheDiagnosticLetsGoOfTheAccount)
{
    host.signInAs("anna");
    const auto call = host.signIn();
    host.answer("/auth", 200, host.token("bert"));
    onDiagnostic(
        [&](const auto& noticed)
        {
            if (noticed)
                host.account.reset();
        });
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.account, nullptr);
    EXPECT_EQ(call->error(), "CancellationError");
    EXPECT_THAT(host.published, testing::IsEmpty());
    EXPECT_THAT(host.takeRequests(), testing::Contains("DELETE /auth*"));
}

TEST_F(Races, AHandlerOfTheDiagnosticLaunchesDuringASignOut)
{
    host.store("Token", "damaged");
    host.launch();
    host.activate();
    ASSERT_EQ(host.state(), "failed");
    onDiagnostic(
        [&](const auto& noticed)
        {
            if (noticed)
                return;
            host.account->applicationWillFinishLaunching();
            host.store("Token", "damaged by another program");
        });
    host.signOut();
    machine.settle();
    EXPECT_EQ(host.state(), "signedOut");
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "failed") << "a token that cannot be read is no missing token";
}

TEST_F(Races, AHandlerOfASessionWithoutInformationSignsInInVain)
{
    bool signsIn = true;
    onState(
        [&](const AccountState& state)
        {
            if (state.get<AccountPendingProfile>() && std::exchange(signsIn, false))
                host.account->authenticate(SecretString("bad"));
        });
    host.signIn();
    host.answer("/auth", 200, host.token("anna"));
    for (int attempt = 0; attempt < 5; ++attempt)
    {
        host.answer("/account", 500, "");
        machine.advance(10);
    }
    EXPECT_THAT(host.takeRequests(), testing::Contains("/account*")) << "the retry goes on";
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.state(), "signedIn:anna/remote");
}

TEST_F(Races, ASignInMayBeCancelledAtEveryPoint)
{
    for (std::size_t pieces = 0; pieces < 40; ++pieces)
    {
        Machine fresh;
        SessionHost program(fresh);
        program.launch();
        const auto call = program.signIn();
        fresh.executor.drain(pieces);
        program.cancelLastCall();
        fresh.settle();
        const auto refresh = program.refresh();
        fresh.settle();

        EXPECT_EQ(call->error(), "CancellationError") << pieces;
        EXPECT_EQ(refresh->error(), "AccountError.accountRequired") << pieces;
    }
}

TEST_F(Races, WhatASupersededSignInHasStoredIsShownIfTheNextOneAdoptsNothing)
{
    for (std::size_t pieces = 0; pieces < 80; ++pieces)
    {
        Machine fresh;
        SessionHost program(fresh);
        if (pieces % 2 == 0)
            program.launch();
        const auto first = program.signIn();
        program.takeRequests();
        program.network->started.back()->answer(200, program.token("anna"));
        fresh.executor.drain(pieces / 2);
        const auto second = program.signIn();
        program.answerRefused("/auth");
        fresh.settle();

        EXPECT_EQ(first->ends(), 1) << pieces;
        const bool isStored = program.stored("Token").has_value();
        EXPECT_EQ(isStored, program.state() == "pending:anna") << pieces;
        if (isStored)
            program.answer("/account", 200, program.info("anna"));
    }
}

TEST_F(Races, WhatWasStoredBeforeASignOutDoesNotComeBackWithASignInThatFails)
{
    using enum ScriptedKeychain::Operation;
    for (const bool isReadable : {true, false})
    {
        Machine fresh;
        SessionHost program(fresh);
        program.signIn();
        fresh.settle();
        program.network->started.back()->answer(200, program.token("anna"));
        while (!program.stored("Token"))
            fresh.executor.drain(1);
        program.keychain->answer(deleteMatching, platform::KeychainStatus::interactionNotAllowed);
        if (!isReadable)
            program.keychain->answer(copyMatching, platform::KeychainStatus::interactionNotAllowed);
        program.onMainDo([&] { program.account->signOut(); });
        EXPECT_EQ(text(program.account->state()), "signedOut");
        const auto call = program.signIn();
        program.answerRefused("/auth");
        EXPECT_EQ(program.state(), "signedOut");
    }
}

TEST_F(Races, ASecondSignInThatFailsResumesWhatTheFirstInterrupted)
{
    host.store("Token", host.token("bert"));
    host.onMainDo([&] { host.account->applicationWillFinishLaunching(); });
    const auto first = host.signIn();
    machine.settle();
    const auto second = host.signIn();
    machine.settle();
    host.activate();
    EXPECT_EQ(first->error(), "CancellationError");
    EXPECT_EQ(second->ends(), 0) << "a look at the keychain is no reason to end it";
    host.answerRefused("/auth");
    EXPECT_EQ(host.state(), "pending:bert");
}

TEST_F(Races, DeauthenticatingComesBeforeWhatTheHostDoesNext)
{
    const std::function<void()> next[] = {
        [&] { host.account->authenticate(SecretString("bad")); },
        [&] { host.account.reset(); },
        [&] { host.account->applicationDidBecomeActive(); },
    };
    for (const auto& then : next)
    {
        host.launchAgain();
        host.signInAs("anna");
        host.onMainDo(
            [&]
            {
                host.account->deauthenticate();
                then();
            });
        machine.settle();
        EXPECT_EQ(host.stored("Token"), std::nullopt);
        EXPECT_EQ(host.stored("Info"), std::nullopt);
    }

    host.launchAgain();
    host.signInAs("anna");
    host.onMainDo([&] { host.account->deauthenticate(); });
    const auto call = host.signIn();
    machine.settle();
    EXPECT_EQ(host.state(), "signedOut");
    host.answerSignIn("bert");
    EXPECT_EQ(text(call->value()), "signedIn:bert/remote");
}

TEST_F(Races, ASignOutThatTheKeychainRefusesIsReportedAndHidesNoOtherSignIn)
{
    host.signInAs("anna");
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.signOut();
    EXPECT_EQ(host.account->diagnostic()->code, AccountDiagnosticCode::sessionNotRemoved);
    machine.items->fail(std::nullopt);
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "signedOut") << "what was signed out stays so";
    EXPECT_EQ(host.stored("Token"), std::nullopt) << "and is removed when it can be";
    EXPECT_EQ(host.account->diagnostic(), std::nullopt);
    host.store("Token", host.token("bert"));
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "pending:bert");

    // What could not even be read does not come back, either, when a sign-in fails.
    host.launchAgain();
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.launch();
    host.signOut();
    machine.items->fail(std::nullopt);
    host.signIn();
    machine.settle();
    host.activate();
    host.answerRefused("/auth");
    EXPECT_EQ(host.state(), "signedOut");

    // Nor does it when the sign-in has interrupted the look.
    host.launchAgain();
    host.store("Token", host.token("bert"));
    machine.items->fail(platform::KeychainStatus::notAvailable);
    host.launch();
    host.signOut();
    machine.items->fail(std::nullopt);
    host.onMainDo(
        [&]
        {
            host.account->applicationDidBecomeActive();
            host.account->authenticate(SecretString("bad"));
        });
    machine.advance(10);
    EXPECT_EQ(host.state(), "signedOut");
}

TEST_F(Races, OfTwoSignInsTheLaterCallCounts)
{
    // They are awaited on another thread, and reach the main thread in either order.
    const auto worker = platform::executorOf(machine.executor.addQueue("worker"));
    for (const bool inOrder : {true, false})
    {
        host.launchAgain();
        platform::Awaitable<AccountState> made[] = {host.callSignIn(), host.callSignIn()};
        std::shared_ptr<Call<AccountState>> calls[2];
        for (const int number : {inOrder ? 0 : 1, inOrder ? 1 : 0})
            calls[number] = host.startOn<AccountState>(worker, std::move(made[number]));
        machine.settle();
        EXPECT_EQ(calls[0]->error(), "CancellationError");
        host.answerSignIn("anna");
        EXPECT_TRUE(calls[1]->succeeded()) << calls[1]->error();
    }
}

TEST_F(Races, HandlersThatSignOutAreHeardInOrder)
{
    onState(
        [&](const AccountState& state)
        {
            if (state.get<AccountProfile>())
                host.account->signOut();
        });
    auto call = host.signIn();
    host.answerSignIn("anna");
    EXPECT_EQ(call->error(), "CancellationError");
    EXPECT_THAT(host.published, ElementsAre("signedIn:anna/remote", "signedOut"));

    subscription.cancel();
    host.signInAs("anna");
    requestNewsletter();
    host.answer("/account/newsletter", 200, "");
    onNewsletter(
        [&](Newsletter status)
        {
            if (status == Newsletter::idle)
                host.account->signOut();
        });
    call = host.signIn();
    host.answerSignIn("bert");
    EXPECT_THAT(host.published, ElementsAre("signedIn:bert/remote", "signedOut"));
}

TEST_F(Races, TheNewsletterIsNotRequestedForASessionThatItsHandlerEnds)
{
    host.signInAs("anna");
    onNewsletter(
        [&](Newsletter status)
        {
            if (status == Newsletter::submitting)
                host.account->signOut();
        });
    const auto call = requestNewsletter();
    EXPECT_THAT(host.takeRequests(), ElementsAre("DELETE /auth*"));
    EXPECT_EQ(call->error(), "CancellationError");
    EXPECT_EQ(host.account->newsletterStatus(), Newsletter::idle);
}

TEST_F(Races, TheNewsletterOfAnotherUserBeginsIdleBeforeHerInformationIsThere)
{
    host.signInAs("anna");
    requestNewsletter();
    host.answer("/account/newsletter", 200, "");
    host.store("Token", host.token("bert"));
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "pending:bert");
    EXPECT_EQ(host.account->newsletterStatus(), Newsletter::idle);
}

TEST_F(Races, ANewsletterIsNotBeingSubmittedByNobody)
{
    // Signed in again elsewhere, while the call's end is still under way.
    host.signInAs("anna");
    requestNewsletter();
    machine.settle();
    host.store("Token", host.token("anna", "s2"));
    host.store("Info", "damaged");
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "pending:anna");
    EXPECT_EQ(host.account->newsletterStatus(), Newsletter::idle);

    // Named by the information, whose handler begins something else.
    requestNewsletter();
    machine.settle();
    EXPECT_EQ(host.account->newsletterStatus(), Newsletter::submitting);
    onState(
        [&](const AccountState& state)
        {
            if (state.get<AccountProfile>())
                host.account->authenticate(SecretString("bad"));
        });
    host.answer("/account", 200, host.info("anna"));
    EXPECT_EQ(host.state(), "signedIn:anna/remote");
    EXPECT_EQ(host.account->newsletterStatus(), Newsletter::idle);
}

TEST_F(Races, TheInformationGoesWithTheSessionThoughAHandlerSignsIn)
{
    host.signInAs("anna");
    machine.advance(1);
    bool once = true;
    onState(
        [&](const AccountState& state)
        {
            if (state.get<AccountState::SignedOut>() && std::exchange(once, false))
                host.account->authenticate(SecretString("bad"));
        });
    removeToken();
    host.activate();
    machine.advance(1);
    EXPECT_EQ(host.state(), "signedOut");
    EXPECT_EQ(host.stored("Info"), std::nullopt);
}

TEST_F(Races, DeletionEndsTheSessionThatItMeantAndNoOther)
{
    const auto deleteAccount = [&]
    { return host.start<void>(host.onMain([&] { return host.account->deleteAccount(); })); };

    // Another program has signed in meanwhile, and whoever hears of the end signs in in vain.
    host.signInAs("anna");
    bool signsIn = true;
    onState(
        [&](const AccountState& state)
        {
            if (state.get<AccountState::SignedOut>() && std::exchange(signsIn, false))
                host.account->authenticate(SecretString("bad"));
        });
    auto call = deleteAccount();
    machine.settle();
    host.store("Token", host.token("bert"));
    host.answer("DELETE /account", 204, "");
    machine.advance(1);
    EXPECT_TRUE(call->succeeded());
    EXPECT_EQ(host.state(), "pending:bert");

    // The user signs in to another account while the deletion is under way.
    host.launchAgain();
    host.signInAs("anna");
    const auto signIn = host.signIn();
    machine.settle();
    call = deleteAccount();
    host.answer("DELETE /account", 204, "");
    EXPECT_EQ(signIn->ends(), 0);
    host.answerSignIn("bert");
    EXPECT_EQ(text(signIn->value()), "signedIn:bert/remote");
    EXPECT_TRUE(call->succeeded());
    EXPECT_EQ(host.state(), "signedIn:bert/remote");

    // Behind the server's answer something else has begun: a sign-in that fails, or what ends any
    // session and needs not read it.
    for (const bool signsInFirst : {true, false})
    {
        host.signInAs("anna");
        call = deleteAccount();
        machine.settle();
        host.network->started.back()->answer(204, "");
        while (host.background->size() > 0)
            host.background->runHead();
        if (!signsInFirst)
            host.keychain->answer(ScriptedKeychain::Operation::copyMatching,
                                  platform::KeychainStatus::interactionNotAllowed);
        host.onMainDo(
            [&]
            {
                if (signsInFirst)
                    return host.account->authenticate(SecretString("bad"));
                host.account->deauthenticate();
            });
        machine.settle();
        EXPECT_EQ(call->error(), "CancellationError");
        EXPECT_EQ(host.state(), "signedOut");
        EXPECT_EQ(host.stored("Token"), std::nullopt);
    }
}

TEST_F(Races, AFloodOfAnnouncementsIsFollowedThoughReadsAreSlow)
{
    host.signInAs("anna");
    machine.advance(1);
    const auto other =
        machine.announcements.device(1)->join(platform::executorOf(host.main), [](auto&) {});
    host.store("Token", host.token("bert"));
    int announcements = 0;
    for (; announcements < 5'000 && host.state() == "signedIn:anna/remote"; ++announcements)
    {
        other->setString(std::to_string(announcements), "net.ostra.account.token.touched");
        other->synchronize();
        machine.announcements.deliverAll();
        while (host.main->size() > 0)
            host.main->runHead();
        while (announcements % 20 == 19 && host.storage->size() > 0)
            host.storage->runHead();
        machine.clock->advance(100'000);
    }
    EXPECT_LT(announcements, 5'000);

    // Behind a store that somebody else holds for a minute, there is one read.
    machine.advance(1);
    for (int tenths = 0; tenths < 600; ++tenths)
    {
        other->setString("minute " + std::to_string(tenths), "net.ostra.account.token.touched");
        other->synchronize();
        machine.announcements.deliverAll();
        machine.clock->advance(100'000'000);
        while (host.main->size() > 0)
            host.main->runHead();
    }
    EXPECT_LE(host.storage->size(), 2U);
}
