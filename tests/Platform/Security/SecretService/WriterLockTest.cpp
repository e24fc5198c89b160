#include "Platform/Security/SecretService/WriterLock.hpp"

#include "Platform/Security/SecretService/SecretServiceFailure.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <thread>

#include <gtest/gtest.h>

using namespace platform;
using namespace std::chrono_literals;

namespace
{

Deadline in(std::chrono::milliseconds time)
{
    return std::chrono::steady_clock::now() + time;
}

std::optional<KeychainStatus> refusal(const std::filesystem::path& folder)
{
    try
    {
        WriterLock(folder, in(10ms));
        return std::nullopt;
    }
    catch (const SecretServiceFailure& failure)
    {
        return failure.status();
    }
}

TEST(WriterLock, MakesItsFolderAndRefusesOneThatOthersCouldReach)
{
    const TemporaryFolder folder;
    const auto path = folder.path() / "deep" / "er";
    EXPECT_EQ(refusal(path), std::nullopt);
    struct stat status{};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);

    chmod(path.c_str(), 0750);
    EXPECT_EQ(refusal(path), KeychainStatus::notAvailable);
    chmod(path.c_str(), 0700);
    std::filesystem::create_directory_symlink(path, folder.path() / "link");
    EXPECT_EQ(refusal(folder.path() / "link"), KeychainStatus::notAvailable);
    folder.write("file", "");
    EXPECT_EQ(refusal(folder.path() / "file"), KeychainStatus::notAvailable);
    std::filesystem::create_symlink("elsewhere", folder.path() / "deep" / "er" / "x");
    std::filesystem::rename(folder.path() / "deep" / "er" / "x", path / "secret-service.lock");
    EXPECT_EQ(refusal(path), KeychainStatus::inputOutput);
    for (const char* relative : {"", "tessera"})
        EXPECT_EQ(refusal(relative), KeychainStatus::notAvailable);
}

TEST(WriterLock, PassesOnWhenItsHolderDiesAndNotBefore)
{
    const TemporaryFolder folder;
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        const WriterLock held(folder.path() / "lock", in(1s));
        (void)write(ready[1], "x", 1);
        pause();
        _exit(0);
    }
    char character = 0;
    ASSERT_EQ(read(ready[0], &character, 1), 1);
    kill(child, SIGSTOP);
    EXPECT_EQ(refusal(folder.path() / "lock"), KeychainStatus::notAvailable);

    std::jthread waiting([&] { WriterLock(folder.path() / "lock", in(60s)); });
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);

    waiting.join();
    EXPECT_EQ(refusal(folder.path() / "lock"), std::nullopt);
    close(ready[0]);
    close(ready[1]);
}

TEST(WriterLock, ExcludesAlsoAfterItsFileWasTakenAway)
{
    const TemporaryFolder folder;
    const auto path = folder.path() / "lock";
    std::optional<WriterLock> held(std::in_place, path, in(1s));
    std::jthread waiting([&] { WriterLock(path, in(60s)); });
    std::filesystem::remove(path / "secret-service.lock");

    const WriterLock fresh(path, in(10s));
    held.reset();

    EXPECT_EQ(refusal(path), KeychainStatus::notAvailable);
}

}  // namespace
