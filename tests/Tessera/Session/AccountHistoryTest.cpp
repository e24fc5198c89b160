#include "Tessera/Session/AccountHistory.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <limits>
#include <map>
#include <sstream>
#include <thread>

namespace
{

using namespace tessera;
using namespace testing;
namespace fs = std::filesystem;
using Cause = AccountTransitionCause;

AccountTransition numbered(int number, Cause cause = Cause::refreshed)
{
    return {{1'700'000'000.25 + number}, AccountStateKind::signedIn, cause};
}

std::vector<AccountTransition> numbers(int first, int last)
{
    std::vector<AccountTransition> all;
    for (int number = first; number <= last; ++number)
        all.push_back(numbered(number));
    return all;
}

struct History
{
    History() { umask(022); }

    AccountHistory of(std::string_view client) const
    {
        return {folder, client,
                [this](const platform::Diagnostic& told) { diagnostics.push_back(told); }};
    }
    void append(int first, int last) const
    {
        for (const auto& transition : numbers(first, last))
            history.append(transition);
    }
    std::string content() const
    {
        std::ostringstream text;
        text << std::ifstream(file).rdbuf();
        return text.str();
    }
    void setContent(std::string_view text) const
    {
        temporary.write("state/tessera/client.history", text);
        fs::permissions(folder, fs::perms::owner_all);
    }

    TemporaryFolder temporary;
    fs::path folder = temporary.path() / "state" / "tessera";
    fs::path file = folder / "client.history";
    mutable std::vector<platform::Diagnostic> diagnostics;
    AccountHistory history = of("client");
};

unsigned modeOf(const fs::path& path)
{
    struct stat found{};
    return lstat(path.c_str(), &found) == 0 ? found.st_mode & 07777 : ~0U;
}

TEST(AccountHistory, KeepsTheLastFiftyInPrivateFilesOneForEachClient)
{
    const History host;
    EXPECT_THAT(host.history.read(), IsEmpty());
    EXPECT_FALSE(fs::exists(host.folder));

    host.append(1, 230);
    const AccountTransition other{{0.5}, AccountStateKind::signedOut, Cause::otherProgramSignedOut};
    const std::string longName(300, 'x');
    const std::vector<std::string> clients{
        "../x", "a/b", "", "..", "a%2Fb", std::string("a\0b", 3), longName, longName + "y"};
    for (const auto& client : clients)
        host.of(client).append(other);

    EXPECT_EQ(host.history.read(), numbers(181, 230));
    EXPECT_LE(std::ranges::count(host.content(), '\n'), 100);
    EXPECT_EQ(modeOf(host.folder), 0700U);
    std::size_t files = 0;
    for (const auto& entry : fs::recursive_directory_iterator(host.temporary.path() / "state"))
    {
        if (!entry.is_directory())
            ++files;
        EXPECT_EQ(modeOf(entry.path()), entry.is_directory() ? 0700U : 0600U) << entry.path();
    }
    EXPECT_EQ(files, clients.size() + 1);
    for (const auto& client : clients)
        EXPECT_THAT(host.of(client).read(), ElementsAre(other));
    EXPECT_THAT(host.diagnostics, IsEmpty());
}

TEST(AccountHistory, WritesNamesThatOtherProgramsCanRead)
{
    const History host;

    host.history.append({{12.5}, AccountStateKind::signedOut, Cause::otherProgramSignedOut});

    EXPECT_EQ(host.content(),
              "{\"time\":1.25E1,\"state\":\"signedOut\",\"cause\":\"otherProgramSignedOut\"}\n");
}

TEST(AccountHistory, LeavesOutWhatItCannotReadAndGoesOn)
{
    const std::string good = R"({"time":1700000001.25,"state":"signedIn","cause":"refreshed"})";
    const std::string laterCause = R"({"time":3,"state":"signedIn","cause":"fromTheFuture"})";
    const std::string laterState = R"({"time":3,"state":"suspended","cause":"refreshed"})";
    const std::vector<std::string> damages{
        good.substr(0, 20),         // a program was killed while it wrote
        good.substr(0, 20) + '\n',  // and another went on
        R"({"time":"x","state":"signedIn","cause":"refreshed"})" + std::string("\n"),
        "{" + std::string(100'000, '[') + "}\n",
        std::string(5'000, '\0'),
        "[]\nnull\n\xff\xfe{}\n",
        laterCause + '\n' + laterState + '\n',
    };
    for (const auto& damage : damages)
    {
        SCOPED_TRACE(damage.substr(0, 70));
        const History host;
        const bool keepsFirst = damage.size() < 60'000;
        host.setContent(good + '\n' + damage);

        EXPECT_EQ(host.history.read().size(), keepsFirst ? 1U : 0U);
        host.append(2, 3);

        EXPECT_EQ(host.history.read(), numbers(keepsFirst ? 1 : 2, 3));
        host.append(4, 200);
        EXPECT_EQ(host.history.read(), numbers(151, 200));
        EXPECT_THAT(host.diagnostics, IsEmpty());
    }

    // What a later version wrote stays for it when this one shortens the file.
    const History host;
    host.append(1, 99);
    host.setContent(host.content() + laterCause + '\n');
    host.append(100, 100);
    EXPECT_THAT(host.content(), HasSubstr(laterCause));
    EXPECT_EQ(std::ranges::count(host.content(), '\n'), 50);
    EXPECT_EQ(host.history.read(), numbers(52, 100));
}

TEST(AccountHistory, NeitherReadsNorKeepsAHugeFile)
{
    const History host;
    host.append(1, 60);
    fs::resize_file(host.file, 1 << 30);

    EXPECT_THAT(host.history.read(), IsEmpty());
    host.append(61, 62);

    EXPECT_EQ(host.history.read(), numbers(61, 62));
    EXPECT_LT(fs::file_size(host.file), 1000U);
}

TEST(AccountHistory, IsNotStoppedByWhatAKilledProgramLeftOrByAnOpenFile)
{
    const History host;
    host.setContent("");
    host.temporary.write("state/tessera/client.history.draft", "half of a li");
    fs::permissions(host.file, fs::perms(0644));

    host.append(1, 101);

    EXPECT_EQ(host.history.read(), numbers(52, 101));
    EXPECT_EQ(modeOf(host.file), 0600U);
    EXPECT_FALSE(fs::exists(host.file.string() + ".draft"));
}

TEST(AccountHistory, RefusesPlacesThatAreNotTheUsersAlone)
{
    struct Row
    {
        const char* name;
        void (*arrange)(const History&);
        const char* cause;
        const char* nextStep;
    };
    const Row rows[] = {
        {"link",
         [](const History& host)
         {
             host.temporary.write("victim", "");
             fs::create_symlink(host.temporary.path() / "victim", host.file);
         },
         "client.history is a link", "Move it away"},
        {"pipe", [](const History& host) { mkfifo(host.file.c_str(), 0600); },
         "client.history is not a regular file", "Move it away"},
        {"link to the folder",
         [](const History& host)
         {
             fs::rename(host.folder, host.temporary.path() / "elsewhere");
             fs::create_symlink(host.temporary.path() / "elsewhere", host.folder);
         },
         "is a link or no folder", "Put a real folder"},
        {"open folder", [](const History& host) { fs::permissions(host.folder, fs::perms(0770)); },
         "can be written to by other users", "chmod 700"},
        {"other user's file",
         [](const History& host)
         {
             host.setContent("");
             ASSERT_EQ(chown(host.file.c_str(), 12345, 12345), 0);
         },
         "belongs to another user", "Give it"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.name);
        if (std::string_view(row.name).starts_with("other") && geteuid() != 0)
            continue;  // only root can give a file away
        const History host;
        fs::create_directories(host.folder);
        row.arrange(host);

        host.history.append(numbered(1));
        EXPECT_THAT(host.history.read(), IsEmpty());

        ASSERT_THAT(host.diagnostics, SizeIs(2));
        for (const auto& told : host.diagnostics)
        {
            EXPECT_EQ(told.area, "account history");
            EXPECT_THAT(told.cause, HasSubstr(row.cause));
            EXPECT_THAT(told.nextStep, HasSubstr(row.nextStep));
        }
        const auto victim = host.temporary.path() / "victim";
        EXPECT_TRUE(!fs::exists(victim) || fs::file_size(victim) == 0);
    }

    // A slash at the end must not lead through a link; a bad time and a sink that throws stop
    // nobody; without a folder there is no history.
    const History host;
    fs::create_directories(host.folder);
    fs::create_directory_symlink(host.folder, host.temporary.path() / "link");
    const auto thrower = [](const platform::Diagnostic&) { throw std::runtime_error("sink"); };
    for (const auto& folder : {host.temporary.path() / "link/", fs::path("relative"), fs::path()})
    {
        const AccountHistory history(folder, "client", thrower);
        history.append(numbered(1));
        EXPECT_THAT(history.read(), IsEmpty());
    }
    host.history.append({{std::numeric_limits<double>::quiet_NaN()}, {}, {}});
    EXPECT_FALSE(fs::exists(host.file));
    EXPECT_FALSE(fs::exists("relative"));
}

TEST(AccountHistory, WaitsASecondForAProgramThatHoldsTheLockAndThenWritesWithoutIt)
{
    const History host;
    host.append(1, 100);
    const int holder = open(host.file.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);

    const auto start = std::chrono::steady_clock::now();
    host.append(101, 101);
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(host.history.read(), numbers(52, 101));
    EXPECT_EQ(std::ranges::count(host.content(), '\n'), 101);
    close(holder);
    host.append(102, 102);

    EXPECT_GE(waited, std::chrono::seconds(1));
    EXPECT_LT(waited, std::chrono::seconds(10));  // a busy machine
    EXPECT_EQ(host.history.read(), numbers(53, 102));
    EXPECT_EQ(std::ranges::count(host.content(), '\n'), 50);
    EXPECT_THAT(host.diagnostics, IsEmpty());
}

/// Of each writer, told by the cause, the numbers must follow each other without a gap.
void expectNoGap(const std::vector<AccountTransition>& read)
{
    std::map<Cause, AccountTransition> last;
    for (const auto& transition : read)
    {
        const auto [before, isFirst] = last.try_emplace(transition.cause, transition);
        if (!isFirst)
        {
            EXPECT_EQ(transition.time - before->second.time, 1);
            before->second = transition;
        }
    }
}

TEST(AccountHistory, LosesNoLineOfProgramsAndThreadsThatWriteAtOnce)
{
    constexpr int lines = 1000;
    const History host;
    const auto writeAll = [&host](Cause cause)
    {
        const auto history = host.of("client");
        for (int number = 1; number <= lines; ++number)
            history.append(numbered(number, cause));
    };
    std::vector<pid_t> children;
    for (const Cause cause : {Cause::signedIn, Cause::signedOut})
    {
        const pid_t child = fork();
        if (child == 0)
        {
            writeAll(cause);
            _exit(host.diagnostics.empty() ? 0 : 1);
        }
        children.push_back(child);
    }
    std::thread thread(writeAll, Cause::restored);

    // A reader in between sees no gap either.
    std::size_t longest = 0;
    for (std::size_t running = children.size(); running > 0;)
    {
        const auto read = host.history.read();
        longest = std::max(longest, read.size());
        expectNoGap(read);
        int status = 0;
        if (waitpid(-1, &status, WNOHANG) > 0)
        {
            EXPECT_EQ(status, 0);
            --running;
        }
    }
    thread.join();

    const auto read = host.history.read();
    ASSERT_THAT(read, SizeIs(50));
    EXPECT_EQ(longest, 50U);
    expectNoGap(read);
    EXPECT_EQ(read.back().time, numbered(lines).time);
    EXPECT_THAT(host.diagnostics, IsEmpty());
}

}  // namespace
