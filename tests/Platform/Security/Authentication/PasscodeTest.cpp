#include "Platform/Security/Authentication/Passcode.hpp"

#include "Platform/Security/Authentication/PasscodeRecord.hpp"
#include "Platform/Security/Authentication/PasscodeTries.hpp"
#include "tests/Platform/Security/Authentication/ProtectionHost.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>

using namespace platform;
using enum KeychainStatus;

namespace
{

SecretString secret(std::string_view text)
{
    return SecretString(text);
}

KeychainItem recordIn(const MemoryItemStore& store)
{
    const auto items = store.items();
    EXPECT_EQ(items.size(), 1U);
    EXPECT_EQ(items.begin()->first.accessGroup, internalAccessGroup);
    return items.begin()->second;
}

}  // namespace

TEST(Passcode, IsSetChangedAndRemovedByWhoKnowsIt)
{
    ProtectionHost host;
    auto& passcode = host.passcode;
    const std::string tooLong(1025, 'x');

    EXPECT_FALSE(passcode.isSet().isSet);
    EXPECT_EQ(passcode.change(secret("a"), secret("b")), itemNotFound);
    EXPECT_EQ(passcode.remove(secret("a")), itemNotFound);
    for (const std::string_view bad :
         {std::string_view(), std::string_view("\xFF"), std::string_view(tooLong)})
        EXPECT_EQ(passcode.set(secret(bad)), parameter);
    EXPECT_EQ(passcode.set(secret("first")), success);
    EXPECT_EQ(passcode.set(secret("second")), duplicateItem);
    EXPECT_TRUE(host.anotherPasscode().isSet().isSet);
    EXPECT_EQ(passcode.change(secret("first"), secret("")), parameter);
    EXPECT_EQ(passcode.change(secret("second"), secret("third")), authenticationFailed);
    EXPECT_EQ(passcode.change(secret("first"), secret("third")), success);
    EXPECT_EQ(passcode.remove(secret("first")), authenticationFailed);
    EXPECT_EQ(passcode.remove(secret("third")), success);
    EXPECT_FALSE(passcode.isSet().isSet);
    EXPECT_TRUE(host.store->items().empty());
}

TEST(Passcode, AnswersWithTheFailureOfTheStore)
{
    ProtectionHost host;
    ASSERT_EQ(host.passcode.set(secret("right")), success);
    host.store->fail(diskFull);
    EXPECT_EQ(host.passcode.isSet().status, diskFull);
    EXPECT_EQ(host.passcode.set(secret("new")), diskFull);
    EXPECT_EQ(host.passcode.change(secret("right"), secret("new")), diskFull);
    EXPECT_EQ(host.passcode.remove(secret("right")), diskFull);
    host.store->fail(std::nullopt);
    EXPECT_EQ(host.passcode.remove(secret("right")), success);
}

TEST(Passcode, OfTwoThatAreSetOrChangedAtOnceOneHolds)
{
    const auto twice = [](const auto& action)
    {
        std::array<KeychainStatus, 2> ended{};
        std::thread other([&] { ended[0] = action("one"); });
        ended[1] = action("two");
        other.join();
        std::ranges::sort(ended);
        return ended;
    };
    for (int round = 0; round < 50; ++round)
    {
        ProtectionHost host;
        EXPECT_THAT(
            twice([&](std::string_view text) { return host.anotherPasscode().set(secret(text)); }),
            testing::ElementsAre(duplicateItem, success));
        const auto old =
            host.passcode.change(secret("one"), secret("one")) == success ? "one" : "two";
        EXPECT_THAT(twice(
                        [&](std::string_view text)
                        {
                            return host.anotherPasscode().change(
                                secret(old), secret("new " + std::string(text)));
                        }),
                    testing::ElementsAre(authenticationFailed, success));
    }
}

TEST(Passcode, WaitsGrowToAnHourAndNoTimeMakesThemLonger)
{
    struct Row
    {
        std::uint32_t tries;
        double wait;
    };
    for (const auto& [tries, wait] :
         {Row{0, 0}, Row{4, 0}, Row{5, 30}, Row{6, 60}, Row{7, 120}, Row{11, 1920}, Row{12, 3600},
          Row{13, 3600}, Row{std::numeric_limits<std::uint32_t>::max(), 3600}})
    {
        const PasscodeTries made{.count = tries, .last = {1000}};
        EXPECT_EQ(made.waitLeft({1000}), wait) << tries;
        EXPECT_EQ(made.waitLeft({1000 + wait}), 0) << tries;
        EXPECT_EQ(made.waitLeft({-1e12}), wait) << tries;
    }
}

TEST(Passcode, WrongOnesWaitForAllProgramsUntilTheTimeIsOver)
{
    ProtectionHost host;
    ASSERT_EQ(host.passcode.set(secret("right")), success);
    const auto guess = [&](std::string_view text)
    {
        host.takeDiagnostics();
        return host.anotherPasscode().change(secret(text), secret("right"));
    };
    const auto wait = [&]
    {
        const auto told = host.takeDiagnostics();
        return told.size() == 1 ? told[0].nextStep : "";
    };

    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(guess("wrong"), authenticationFailed);
    EXPECT_EQ(guess("right"), authenticationFailed);
    EXPECT_EQ(wait(), "Try again in 30 seconds.");
    host.clock->advance(29 * nanosecondsPerSecond);
    EXPECT_EQ(guess("right"), authenticationFailed);
    EXPECT_EQ(wait(), "Try again in 1 seconds.");
    host.clock->advance(1 * nanosecondsPerSecond);
    EXPECT_EQ(guess("wrong"), authenticationFailed);
    EXPECT_EQ(guess("right"), authenticationFailed);
    EXPECT_EQ(wait(), "Try again in 60 seconds.");

    // Set back by a year, and by a minute more each time somebody looks.
    for (int i = 0; i < 3; ++i)
    {
        host.clock->setNow({1'668'000'000.0 - 60 * i});
        EXPECT_EQ(guess("right"), authenticationFailed);
        EXPECT_EQ(wait(), "Try again in 60 seconds.");
    }
    host.clock->advance(60 * nanosecondsPerSecond);
    EXPECT_EQ(guess("right"), success);

    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(guess("wrong"), authenticationFailed);
    EXPECT_EQ(guess("right"), success) << "the right one clears the count";
}

TEST(Passcode, GuessesOfManyAtOnceGetNoMoreTriesThanAreCounted)
{
    ProtectionHost host;
    ASSERT_EQ(host.passcode.set(secret("right")), success);
    host.takeDiagnostics();

    std::vector<std::thread> guessers;
    for (int i = 0; i < 4; ++i)
        guessers.emplace_back(
            [&]
            {
                auto mine = host.anotherPasscode();
                for (int guess = 0; guess < 5; ++guess)
                    EXPECT_EQ(mine.remove(secret("wrong")), authenticationFailed);
            });
    for (auto& guesser : guessers)
        guesser.join();

    const auto told = host.takeDiagnostics();
    EXPECT_EQ(told.size(), 20U);
    EXPECT_EQ(std::ranges::count(told, "The passcode was wrong.", &Diagnostic::cause), 5);
}

TEST(Passcode, ATryIsCountedBeforeItIsMade)
{
    ProtectionHost host;
    ASSERT_EQ(host.passcode.set(secret("right")), success);

    // The program dies right after the first write: what it has written then stays.
    for (int i = 0; i < 5; ++i)
    {
        host.store->failAfterWrites(1, inputOutput);
        EXPECT_EQ(host.passcode.remove(secret("right")), inputOutput);
        host.store->fail(std::nullopt);
    }

    EXPECT_EQ(host.passcode.remove(secret("right")), authenticationFailed);
    host.clock->advance(30 * nanosecondsPerSecond);
    EXPECT_EQ(host.passcode.remove(secret("right")), success);
}

TEST(Passcode, ARecordThatWasTamperedWithNeverOpens)
{
    ProtectionHost host;
    ASSERT_EQ(host.passcode.set(secret("right")), success);
    const auto whole = recordIn(*host.store);
    const std::size_t triesSize = 4 + 8;
    const auto opens = [](const SecretBytes& bytes)
    {
        // A flipped cost may be as large as is allowed; what such a record would open is not tried.
        const auto record = PasscodeRecord::read(bytes.view());
        return record && record->cost.memory <= 1 << 20 && record->cost.operations <= 64 &&
               record->open(SecretString("right"));
    };
    ASSERT_TRUE(opens(whole.data));

    for (std::size_t i = 0; i + triesSize < whole.data.size(); ++i)
    {
        auto flipped = whole.data;
        flipped.mutableView()[i] ^= std::byte{1};
        EXPECT_FALSE(opens(flipped)) << "byte " << i;
    }
    for (const std::size_t size : {std::size_t{1}, whole.data.size() - 1, whole.data.size() + 1})
    {
        auto cut = whole;
        cut.data.resize(size);
        host.store->put(cut);
        EXPECT_EQ(host.passcode.isSet().status, damaged) << size;
        EXPECT_EQ(host.passcode.set(secret("new")), damaged) << size;
        EXPECT_EQ(host.passcode.remove(secret("right")), damaged) << size;
    }
}

TEST(Passcode, NoDiagnosticAndNothingStoredHoldsOne)
{
    ProtectionHost host;
    host.passcode.set(secret("secret-one"));
    host.passcode.set(secret("secret-two"));
    host.passcode.set(secret("secret-\xFF"));
    for (int i = 0; i < 7; ++i)
        host.passcode.change(secret("secret-three"), secret("secret-four"));

    const auto record = recordIn(*host.store);
    EXPECT_EQ(SecretString(record.data).view().find("secret-"), std::string_view::npos);
    const auto told = host.takeDiagnostics();
    EXPECT_EQ(told.size(), 8U);
    for (const auto& diagnostic : told)
        EXPECT_EQ((diagnostic.cause + diagnostic.nextStep).find("secret-"), std::string::npos);
}
