#include "tests/Platform/Security/Embedded/EmbeddedStoreHost.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace platform;
using enum KeychainStatus;
using testing::HasSubstr;
using testing::Not;

TEST(EmbeddedItemStore, TouchesNothingBeforeItIsUsedAndShowsNobodyElseAnything)
{
    EmbeddedStoreHost host;
    const mode_t mask = ::umask(0);
    {
        auto store = host.open();
        EXPECT_FALSE(std::filesystem::exists(host.places.dataFolder));

        EXPECT_EQ(put(store, "key", "a rather secret value"), success);

        for (const auto& path :
             {host.places.dataFolder, host.places.keyFolder, host.places.database, host.places.log,
              host.places.logIndex, host.places.key, host.places.lock})
        {
            struct stat found{};
            ASSERT_EQ(::lstat(path.c_str(), &found), 0) << path;
            EXPECT_EQ(found.st_mode & 0777, S_ISDIR(found.st_mode) ? 0700U : 0600U) << path;
        }
    }
    ::umask(mask);
    EXPECT_THAT(host.content(host.places.database), Not(HasSubstr("secret value")));
}

TEST(EmbeddedItemStore, IsClosedAheadOfItsEndAndOpensAgain)
{
    EmbeddedStoreHost host;
    auto store = host.open();
    store.close();
    ASSERT_EQ(put(store, "key", "value"), success);
    EXPECT_EQ(store.update(itemNamed("key", "").identity,
                           [&](const SecretBytes*) -> std::optional<SecretBytes>
                           {
                               store.close();  // in use by this very thread: nothing happens
                               return bytes("new");
                           }),
              success);
    EXPECT_TRUE(std::filesystem::exists(host.places.log));

    store.close();

    EXPECT_FALSE(std::filesystem::exists(host.places.log));
    EXPECT_EQ(valueOf(store, "key"), "new");
    EXPECT_EQ(host.reported(), "");
}

TEST(EmbeddedItemStore, AReplacementThatMeetsAnotherItemDeletesAlone)
{
    EmbeddedStoreHost host;
    auto store = host.open();
    ASSERT_EQ(put(store, "old", "1"), success);
    ASSERT_EQ(put(store, "new", "2"), success);

    EXPECT_EQ(store.replace(patternOf("old"), itemNamed("new", "3")), duplicateItem);

    EXPECT_EQ(valueOf(store, "old"), "= -25300");
    EXPECT_EQ(valueOf(store, "new"), "2");
}

TEST(EmbeddedItemStore, SeesWhatOthersWriteAtOnce)
{
    EmbeddedStoreHost host;
    auto one = host.open();
    auto other = host.open();

    for (int round = 0; round < 20; ++round)
    {
        EXPECT_EQ(valueOf(other, "key"), "= -25300");
        ASSERT_EQ(put(one, "key", "first"), success);
        EXPECT_EQ(valueOf(other, "key"), "first");
        EXPECT_EQ(other.copyMatching(patternOfAll(), ItemContent::attributes, 9).items.size(), 1U);
        ASSERT_EQ(put(other, "key", "second"), success);
        EXPECT_EQ(valueOf(one, "key"), "second");
        ASSERT_EQ(one.deleteMatching(patternOf("key")), success);
    }
    EXPECT_EQ(host.reported(), "");
}

TEST(EmbeddedItemStore, StoresThatStartTogetherAgreeOnOneKey)
{
    EmbeddedStoreHost host;
    std::atomic<int> waiting = 4;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number)
    {
        threads.emplace_back(
            [&, number]
            {
                auto configuration = host.configuration();
                configuration.diagnostics = {};
                EmbeddedItemStore store(configuration);
                for (--waiting; waiting > 0;)
                    std::this_thread::yield();
                EXPECT_EQ(put(store, "key" + std::to_string(number), "value"), success);
            });
    }
    for (auto& thread : threads)
        thread.join();

    auto store = host.open();
    EXPECT_EQ(store.copyMatching(patternOfAll(), ItemContent::attributesAndData, 9).items.size(),
              4U);
    EXPECT_FALSE(std::filesystem::exists(host.places.keyDraft));
}

TEST(EmbeddedItemStore, AChildOfForkIsRefusedAndDoesTheParentNoHarm)
{
    EmbeddedStoreHost host;
    auto store = host.open();
    ASSERT_EQ(put(store, "key", "value"), success);

    const pid_t child = ::fork();
    if (child == 0)
    {
        const bool inherited = valueOf(store, "key") == "= -25291";
        auto own = std::make_unique<EmbeddedItemStore>(host.configuration());
        const bool fresh = valueOf(*own, "key") == "= -25291";
        own.reset();
        ::_exit(inherited && fresh ? 0 : 1);
    }
    int ended = 0;
    ASSERT_EQ(::waitpid(child, &ended, 0), child);

    EXPECT_EQ(ended, 0);
    EXPECT_EQ(valueOf(store, "key"), "value");
}

/// Holds the store's write lock through a change that does not end before it is told to.
class Holder
{
public:
    explicit Holder(EmbeddedItemStore& store)
        : thread_(
              [this, &store]
              {
                  (void)store.update(itemNamed("held", "").identity,
                                     [this](const SecretBytes*) -> std::optional<SecretBytes>
                                     {
                                         holds_ = true;
                                         holds_.notify_all();
                                         released_.wait(false);
                                         return std::nullopt;
                                     });
              })
    {
        holds_.wait(false);
    }
    ~Holder()
    {
        released_ = true;
        released_.notify_all();
        thread_.join();
    }

private:
    std::atomic<bool> holds_ = false;
    std::atomic<bool> released_ = false;
    std::thread thread_;
};

TEST(EmbeddedItemStore, WaitsForOthersNoLongerThanItsPatience)
{
    EmbeddedStoreHost host;
    auto configuration = host.configuration();
    configuration.patience = std::chrono::milliseconds(200);
    auto rival = host.open();
    ASSERT_EQ(put(rival, "key", "value"), success);
    EmbeddedItemStore store(configuration);
    ASSERT_EQ(valueOf(store, "key"), "value");
    EmbeddedItemStore other(configuration);

    const Holder holder(rival);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(put(store, "key", "new"), notAvailable);
    const auto waited = std::chrono::steady_clock::now() - start;

    EXPECT_GE(waited, std::chrono::milliseconds(190));
    EXPECT_LT(waited, std::chrono::milliseconds(1500));
    EXPECT_THAT(host.reported(), HasSubstr("another program holds the store"));
    EXPECT_EQ(valueOf(store, "key"), "value");
    EXPECT_EQ(valueOf(other, "key"), "value");
}

}  // namespace
