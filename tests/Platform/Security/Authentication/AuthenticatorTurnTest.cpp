#include "Platform/Security/Authentication/AuthenticatorTurn.hpp"

#include "Platform/Concurrency/WorkerThread.hpp"
#include "tests/Platform/Security/Authentication/ProtectionHost.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <thread>

using namespace platform;
using enum KeychainStatus;
using Flag = AccessControlFlag;

namespace
{

constexpr auto limit = 60 * nanosecondsPerSecond;

/// A read on a thread of its own.
std::future<KeychainStatus> reading(ProtectionHost& host, const KeychainItem& item,
                                    LocalAuthenticationContext& context)
{
    return std::async(std::launch::async, [&] { return host.read(item, context); });
}

/// Replaces the user by one who is there when asked, and tells when the last of those who held the
/// old one, its thread included, has let go of it.
std::future<void> replaceUser(ProtectionHost& host)
{
    auto gone = std::make_shared<std::promise<void>>();
    auto told = gone->get_future();
    host.user = std::make_shared<ScriptedAuthenticator>([gone] { gone->set_value(); });
    return told;
}

}  // namespace

TEST(AuthenticatorTurn, InvalidatingEndsTheReadThatWaitsAndAllLaterOnes)
{
    ProtectionHost host;
    const auto item = host.stored(Flag::userPresence);
    host.user->hold(true);
    LocalAuthenticationContext context;
    auto read = reading(host, item, context);
    host.user->waitUntilAsked(1);

    context.invalidate();

    EXPECT_EQ(read.get(), userCancelled);
    EXPECT_EQ(host.read(item, context), userCancelled);
    EXPECT_EQ(host.user->asked(), 1U);
    EXPECT_TRUE(host.user->requests()[0].ended.stop_requested());
    host.user->letGo();
    EXPECT_EQ(host.readAlone(item), success) << "the next one waits for the old window to close";
    EXPECT_EQ(host.user->mostAtOnce(), 1);
}

TEST(AuthenticatorTurn, AnAgreementThatComesTooLateIsNotRemembered)
{
    /// The context ends when the answer has been taken and is being looked at.
    struct LateEnd final : Authenticator
    {
        LocalAuthenticationContext* context = nullptr;

        Answer authenticate(const Request&) override { return {Outcome::confirmed, {}}; }
        bool offers(AccessControlFlag) const override { return true; }
        std::optional<std::string> fingerprintSet() const override
        {
            context->invalidate();
            return "thumb";
        }
    };
    ProtectionHost host;
    const auto item = host.stored(Flag::userPresence);
    LocalAuthenticationContext context;
    host.user->meanwhile([&] { context.invalidate(); });

    EXPECT_EQ(host.read(item, context), userCancelled);
    EXPECT_EQ(host.read(item, context), userCancelled);

    LocalAuthenticationContext second;
    const auto late = std::make_shared<LateEnd>();
    late->context = &second;
    auto services = host.services();
    services.authenticator = late;
    auto finger = host.stored(Flag::anyFingerprint);
    EXPECT_EQ(host.protection.release(finger, second, services), userCancelled);
}

TEST(AuthenticatorTurn, InvalidatingMayRaceTheAnswer)
{
    ProtectionHost host;
    host.passcode.set(SecretString("right"));
    host.user->answer(Authenticator::Outcome::confirmed, "right");
    for (int round = 0; round < 100; ++round)
    {
        const auto item = host.stored(round % 2 ? Flag::userPresence : Flag::devicePasscode);
        LocalAuthenticationContext context;
        host.user->hold(true);
        auto read = reading(host, item, context);
        host.user->waitUntilAsked(static_cast<std::size_t>(round) + 1);
        std::thread answering([&] { host.user->letGo(); });

        context.invalidate();

        answering.join();
        const auto status = read.get();
        EXPECT_TRUE(status == userCancelled || status == success);
        EXPECT_EQ(host.read(item, context), userCancelled);
    }
}

TEST(AuthenticatorTurn, ReadsOfOneContextShareOneQuestionAndOthersTakeTurns)
{
    ProtectionHost host;
    const auto item = host.stored(Flag::userPresence);
    LocalAuthenticationContext shared;
    LocalAuthenticationContext other;
    host.user->hold(true);

    auto first = reading(host, item, shared);
    host.user->waitUntilAsked(1);
    auto second = reading(host, item, shared);
    auto third = reading(host, item, other);
    host.user->letGo();

    EXPECT_EQ(first.get(), success);
    EXPECT_EQ(second.get(), success);
    EXPECT_EQ(third.get(), success);
    EXPECT_EQ(host.user->asked(), 2U);
    EXPECT_EQ(host.user->mostAtOnce(), 1);
}

TEST(AuthenticatorTurn, AReadThatWaitsForItsTurnEndsWithItsContext)
{
    ProtectionHost host;
    const auto item = host.stored(Flag::userPresence);
    LocalAuthenticationContext holding;
    LocalAuthenticationContext waiting;
    host.user->hold(true);
    auto first = reading(host, item, holding);
    host.user->waitUntilAsked(1);
    auto second = reading(host, item, waiting);

    waiting.invalidate();

    EXPECT_EQ(second.get(), userCancelled);
    host.user->letGo();
    EXPECT_EQ(first.get(), success);
    EXPECT_EQ(host.user->asked(), 1U);
}

TEST(AuthenticatorTurn, AReadEndsWhenTheTimeIsUpThoughTheAuthenticatorNeverReturns)
{
    ProtectionHost host;
    auto gone = replaceUser(host);
    const auto item = host.stored(Flag::userPresence);
    host.user->hold(false);
    LocalAuthenticationContext context;

    auto read = reading(host, item, context);
    host.user->waitUntilAsked(1);
    host.clock->advance(limit - 1);
    EXPECT_FALSE(host.user->requests()[0].ended.stop_requested());
    host.clock->advance(1);

    EXPECT_EQ(read.get(), userCancelled);
    EXPECT_TRUE(host.user->requests()[0].ended.stop_requested());
    EXPECT_EQ(host.takeDiagnostics().size(), 1U);
    EXPECT_EQ(host.clock->timers(), 0U);

    auto stuck = host.user;
    host.user = std::make_shared<ScriptedAuthenticator>();
    EXPECT_EQ(host.read(item, context), notAvailable) << "at once, and nobody else is asked";
    EXPECT_EQ(host.user->asked(), 0U);
    EXPECT_EQ(host.takeDiagnostics().size(), 1U);

    stuck->letGo();
    stuck.reset();
    gone.wait();
    EXPECT_EQ(host.read(item, context), success);
}

TEST(AuthenticatorTurn, TheMachinesClockEndsAReadInAThreadThatGathersABatch)
{
    WorkerThread worker;
    ProtectionHost host;
    host.realClock = systemClock(worker.executor());
    auto gone = replaceUser(host);
    const auto item = host.stored(Flag::userPresence);
    const MainActorBatch batch;
    EXPECT_EQ(host.readAlone(item), success);

    host.answerLimit = std::chrono::milliseconds(1);
    host.user->hold(true);
    EXPECT_EQ(host.readAlone(item), userCancelled);
    host.user.reset();
    gone.wait();
}

TEST(AuthenticatorTurn, AfterAnInvalidatedQuestionThatDoesNotCloseTheNextWaitsNoLongerThanTheLimit)
{
    ProtectionHost host;
    auto gone = replaceUser(host);
    const auto item = host.stored(Flag::userPresence);
    host.user->hold(false);
    LocalAuthenticationContext context;
    auto first = reading(host, item, context);
    host.user->waitUntilAsked(1);
    context.invalidate();
    EXPECT_EQ(first.get(), userCancelled);

    // An authenticator that is asked to stop drops its timer, so the only one left is the next
    // read's.
    LocalAuthenticationContext next;
    auto second = reading(host, item, next);
    while (host.clock->timers() == 0)
        std::this_thread::yield();
    host.clock->advance(limit);

    EXPECT_EQ(second.get(), notAvailable);
    EXPECT_EQ(host.readAlone(item), notAvailable) << "at once";
    host.user->letGo();
    host.user.reset();
    gone.wait();
}

TEST(AuthenticatorTurn, AnAuthenticatorThatUsesThePasscodeStopsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ProtectionHost host;
            host.user->meanwhile([&] { host.passcode.isSet(); });
            host.readAlone(host.stored(Flag::userPresence));
        },
        "An authenticator must not use the passcode");
}

TEST(AuthenticatorTurn, TheProcessMayEndWhileAnAuthenticatorIsStuck)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            ProtectionHost host;
            const auto item = host.stored(Flag::userPresence);
            host.user->hold(false);
            LocalAuthenticationContext context;
            auto read = reading(host, item, context);
            host.user->waitUntilAsked(1);
            host.clock->advance(limit);
            // It returns while the process is ending.
            static const auto user = host.user;
            std::atexit([] { user->letGo(); });
            if (read.get() == userCancelled)
                std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}
