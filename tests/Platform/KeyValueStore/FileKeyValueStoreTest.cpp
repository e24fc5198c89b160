#include "tests/Platform/KeyValueStore/KeyValueHost.hpp"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>

using namespace platform;
using testing::Contains;
using testing::ElementsAre;
using testing::Optional;
using testing::UnorderedElementsAre;

namespace
{

using KeyValueStore = KeyValueHost;

/// Another process of the user that has joined.
struct OtherProgram
{
    OtherProgram(const std::filesystem::path& folder, const char* work, const char* count = "0")
    {
        int input[2];
        int output[2];
        if (::pipe2(input, O_CLOEXEC) != 0 || ::pipe2(output, O_CLOEXEC) != 0)
            std::abort();
        pid = ::fork();
        if (pid == 0)
        {
            ::dup2(input[0], STDIN_FILENO);
            ::dup2(output[1], STDOUT_FILENO);
            ::execl(KEY_VALUE_PROGRAM, KEY_VALUE_PROGRAM, folder.c_str(), work, count, nullptr);
            ::_exit(127);
        }
        ::close(input[0]);
        ::close(output[1]);
        descriptor = input[1];
        char joined = 0;
        EXPECT_EQ(::read(output[0], &joined, 1), 1) << KEY_VALUE_PROGRAM;
        ::close(output[0]);
    }
    ~OtherProgram() { end(); }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    void end()
    {
        if (pid < 0)
            return;
        ::close(descriptor);
        ::waitpid(std::exchange(pid, -1), nullptr, 0);
    }

    pid_t pid;
    int descriptor;
};

}  // namespace

TEST_F(KeyValueStore, AllButTheWriterAreToldWhateverObjectTheyJoined)
{
    FileKeyValueStore anotherStore(worker.executor(), configuration());
    const auto writer = join(store);
    const auto neighbour = join(store);
    const auto stranger = join(anotherStore);

    EXPECT_TRUE(writer->set("1", "key"));
    waitFor(*neighbour, "key");
    waitFor(*stranger, "key");
    EXPECT_TRUE(neighbour->set("2", "end"));
    waitFor(*writer, "end");

    EXPECT_THAT(writer->heard, ElementsAre("end"));
    EXPECT_THAT(neighbour->heard, ElementsAre("key"));
    EXPECT_THAT(stranger->participant->string("key"), Optional(std::string("1")));
    EXPECT_THAT(told(), testing::IsEmpty());
}

TEST_F(KeyValueStore, TheLastWriterHidesNobodysWrite)
{
    const auto first = join(store);
    const auto second = join(store);

    {
        const Stop stop(worker);
        EXPECT_TRUE(first->set("1", "key"));
        EXPECT_TRUE(second->set("2", "key"));
    }
    waitFor(*first, "key");
    waitFor(*second, "key");

    EXPECT_THAT(first->participant->string("key"), Optional(std::string("2")));
}

TEST_F(KeyValueStore, NobodyIsToldOfWhatWasThereWhenTheyJoined)
{
    const auto writer = join(store);
    std::shared_ptr<Listener> late;
    {
        const Stop stop(worker);
        EXPECT_TRUE(writer->set("1", "early"));
        late = join(store);
        EXPECT_TRUE(writer->set("2", "later"));
    }
    waitFor(*late, "later");

    EXPECT_THAT(late->heard, ElementsAre("later"));
}

TEST_F(KeyValueStore, AnotherProcessIsToldAndAnswersWithinATenthOfASecond)
{
    const auto here = join(store);
    const OtherProgram other(folder, "echo");
    std::vector<std::chrono::duration<double, std::milli>> waits;

    for (int round = 0; round < 11; ++round)
    {
        here->heard.clear();
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(here->set(std::to_string(round), "ping"));
        waitFor(*here, "pong");
        waits.push_back(std::chrono::steady_clock::now() - begin);
        EXPECT_THAT(here->participant->string("pong"), Optional(std::to_string(round)));
    }

    std::ranges::sort(waits);
    EXPECT_LT(waits[5].count(), 100) << "there and back, the median";
}

TEST_F(KeyValueStore, WhatAStormLeavesUntoldIsOneWaitingCall)
{
    const auto idleLoop = std::make_shared<RunLoop>();
    std::vector<std::vector<std::string>> calls;
    const auto idle = store.join(executorOf(idleLoop), [&](const ExternalKeyValueChange& change)
                                 { calls.push_back(*change.changedKeys); });
    const auto awake = join(store);

    OtherProgram(folder, "storm", "5000").end();
    waitFor(*awake, "last");

    EXPECT_EQ(idleLoop->runReady(), 1);
    EXPECT_THAT(calls, ElementsAre(UnorderedElementsAre("storm", "last")));
}

TEST_F(KeyValueStore, ChangesThatTheKernelDroppedAreToldAllTheSame)
{
    const auto writer = join(store);
    const auto other = join(store);
    for (const bool folderGoes : {false, true})
    {
        other->heard.clear();
        {
            const Stop stop(worker);
            // Twice as many events, and more than the kernel keeps for a reader.
            for (int count = 0; count < 9000; ++count)
                writer->set("", "many");
            if (folderGoes)
                std::filesystem::remove_all(folder);
            EXPECT_TRUE(writer->set("", "late"));
        }
        waitFor(*other, "late");
        EXPECT_THAT(other->heard, Contains("many"));
        other->heard.clear();
        EXPECT_TRUE(writer->set("", "next"));
        waitFor(*other, "next");
    }
}

TEST_F(KeyValueStore, AKilledWriterLeavesAWholeValueAndNoDrafts)
{
    const auto here = join(store);
    for (int round = 0; round < 5; ++round)
    {
        OtherProgram other(folder, "storm", "1000000000");
        here->heard.clear();
        waitFor(*here, "storm");
        ::kill(other.pid, SIGKILL);
        other.end();

        const auto value = here->participant->string("storm").value_or("");
        EXPECT_EQ(value, std::string(1024, value.empty() ? '?' : value[0]));
    }
    using std::filesystem::directory_iterator;
    home.write("state/shared/.new-killed", "half");
    for (const auto& file : directory_iterator(folder))
        last_write_time(file, last_write_time(file) - std::chrono::minutes(2));
    home.write("state/shared/.new-living", "half");

    const auto cleaner = join(store);

    std::vector<std::string> left;
    for (const auto& file : directory_iterator(folder))
        left.push_back(file.path().filename());
    EXPECT_THAT(left, UnorderedElementsAre("storm", ".new-living"));
}

TEST_F(KeyValueStore, AParticipantMayGoWithinItsHandlerAndWithACallWaiting)
{
    const auto writer = join(store);
    int calls = 0;
    bool released = false;
    std::unique_ptr<UbiquitousKeyValueStore::Participant> leaving;
    const auto held = std::shared_ptr<int>(new int(0),
                                           [&released](int* number)
                                           {
                                               released = true;
                                               delete number;
                                           });
    leaving = store.join(executorOf(loop),
                         [&calls, &leaving, held](const ExternalKeyValueChange&)
                         {
                             leaving.reset();
                             ++calls;
                             ++*held;
                         });
    auto waiting = store.join(
        executorOf(loop), [](const ExternalKeyValueChange&) { FAIL() << "told after its end"; });

    EXPECT_TRUE(writer->set("1", "key"));
    const auto witness = join(store);
    waiting.reset();
    loop->runUntil([&calls] { return calls == 1; });
    EXPECT_EQ(held.use_count(), 1) << "a handler that is not called any more holds nothing";
    EXPECT_TRUE(writer->set("2", "end"));
    waitFor(*witness, "end");

    EXPECT_EQ(calls, 1);
}

TEST_F(KeyValueStore, ParticipantsOfManyThreadsComeAndGo)
{
    constexpr int threads = 4;
    std::vector<std::jthread> running;
    std::atomic<int> heard = 0;
    for (int thread = 0; thread < threads; ++thread)
        running.emplace_back(
            [this, &heard]
            {
                const auto own = std::make_shared<RunLoop>();
                for (int round = 0; round < 50; ++round)
                {
                    const auto one = store.join(executorOf(own), [&](const auto&) { ++heard; });
                    one->setString(std::to_string(round), "key");
                    EXPECT_TRUE(one->synchronize());
                    EXPECT_TRUE(one->string("key").has_value());
                    own->runReady();
                }
            });
    running.clear();

    EXPECT_GT(heard, 0);
}
