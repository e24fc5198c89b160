#include "tests/Platform/KeyValueStore/KeyValueHost.hpp"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

using namespace platform;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

namespace
{

using KeyValueFaults = KeyValueHost;

mode_t modeOf(const std::filesystem::path& path)
{
    struct stat found{};
    EXPECT_EQ(::lstat(path.c_str(), &found), 0) << path;
    return found.st_mode & 0777;
}

/// Lowers a limit of this process for a while.
struct Limit
{
    Limit(decltype(RLIMIT_FSIZE) which, rlim_t value) : kind(which)
    {
        ::getrlimit(kind, &before);
        const rlimit lowered{value, before.rlim_max};
        ::setrlimit(kind, &lowered);
    }
    ~Limit() { ::setrlimit(kind, &before); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

    decltype(RLIMIT_FSIZE) kind;
    rlimit before{};
};

struct Variable
{
    Variable(const char* variable, const char* value) : name(variable)
    {
        if (const char* old = std::getenv(name))
            before = old;
        value ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    ~Variable() { before ? ::setenv(name, before->c_str(), 1) : ::unsetenv(name); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    const char* name;
    std::optional<std::string> before;
};

}  // namespace

TEST_F(KeyValueFaults, NoKeyLeadsOutOfTheFolderOrMeetsAnother)
{
    const auto writer = join(store);
    const std::vector<std::string> keys = {
        "..", "a/b", "a%2Fb", ".new-x", std::string(3, 0), std::string(66, '/')};
    for (const auto& key : keys)
        EXPECT_TRUE(writer->set("of " + key, key));
    for (const auto& key : keys)
        EXPECT_THAT(writer->participant->string(key), Optional("of " + key));
    EXPECT_THAT(told(), IsEmpty());

    EXPECT_TRUE(writer->set("value", std::string(67, '/')));
    EXPECT_THAT(told(), ElementsAre(HasSubstr("empty or too long")));
}

TEST_F(KeyValueFaults, ValuesUpToAKibibyteAreKeptAndSeenByTheirWriterAtOnce)
{
    const auto writer = join(store);
    const auto reader = join(store);
    for (const auto& value : {std::string(), std::string(1024, '\0')})
    {
        writer->participant->setString(value, "key");
        EXPECT_THAT(writer->participant->string("key"), Optional(value));
        EXPECT_NE(reader->participant->string("key"), value) << "before it was handed over";
        EXPECT_TRUE(writer->participant->synchronize());
        EXPECT_THAT(reader->participant->string("key"), Optional(value));
    }

    EXPECT_TRUE(writer->set(std::string(1025, 'x'), "key"));
    EXPECT_THAT(told(), ElementsAre(HasSubstr("longer than 1 KiB")));
    home.write("state/shared/key", std::string(1025, 'x'));
    EXPECT_EQ(reader->participant->string("key"), std::nullopt) << "written by something else";
}

TEST_F(KeyValueFaults, NothingIsOnDiskBeforeSomebodyJoinsAndThenForTheUserAlone)
{
    EXPECT_FALSE(std::filesystem::exists(folder.parent_path()));
    const auto mask = ::umask(0);
    const auto writer = join(store);
    EXPECT_TRUE(writer->set("1", "key"));
    ::umask(mask);

    EXPECT_EQ(modeOf(folder.parent_path()), 0700U);
    EXPECT_EQ(modeOf(folder), 0700U);
    EXPECT_EQ(modeOf(folder / "key"), 0600U);
}

TEST_F(KeyValueFaults, AFolderThatIsNotTheUsersAloneIsRefusedUntilItIs)
{
    std::filesystem::create_directories(home.path() / "elsewhere");
    const struct
    {
        const char* name;
        std::function<void(const std::filesystem::path&)> make;
        const char* told;
    } rows[] = {
        {"open",
         [](const auto& path)
         {
             std::filesystem::create_directory(path);
             ::chmod(path.c_str(), 0750);
         },
         "is open to other users. -> Run: chmod 700 "},
        {"link", [this](const auto& path)
         { std::filesystem::create_symlink(home.path() / "elsewhere", path); },
         "is a symbolic link. -> Put a folder in its place."},
        {"file", [](const auto& path) { std::ofstream(path) << "text"; },
         "is not a folder. -> Move it away."},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.name);
        auto refused = configuration();
        refused.folder = home.path() / row.name;
        row.make(refused.folder);
        FileKeyValueStore fresh(worker.executor(), refused);
        const auto listener = join(fresh);
        EXPECT_FALSE(listener->set("1", "key"));
        EXPECT_FALSE(listener->participant->synchronize());
        EXPECT_THAT(told(), ElementsAre(HasSubstr(row.told))) << "told once";

        std::filesystem::remove(refused.folder);
        EXPECT_TRUE(listener->participant->synchronize());
        EXPECT_THAT(listener->participant->string("key"), Optional(std::string("1")));
    }
    EXPECT_TRUE(std::filesystem::is_empty(home.path() / "elsewhere"));
}

TEST_F(KeyValueFaults, AFolderThatGoesAwayIsMadeAndWatchedAnew)
{
    const auto away = home.path() / "away";
    const auto here = join(store);
    FileKeyValueStore anotherStore(worker.executor(), configuration());
    const auto there = join(anotherStore);
    const std::function<void()> losses[] = {
        [&] { std::filesystem::remove_all(folder); },
        [&] { std::filesystem::remove_all(folder.parent_path()); },
        [&] { std::filesystem::rename(folder, away); },
    };
    for (const auto& lose : losses)
    {
        {
            // Or the folder is made again while those above it are removed.
            const Stop stop(worker);
            lose();
        }
        // Made by the event alone.
        while (!std::filesystem::exists(folder))
            std::this_thread::yield();
        here->heard.clear();
        there->heard.clear();
        EXPECT_TRUE(here->set("1", "key"));
        waitFor(*there, "key");
        EXPECT_TRUE(there->set("2", "answer"));
        waitFor(*here, "answer");
    }
}

TEST_F(KeyValueFaults, ADiskWithoutRoomKeepsTheOldValueAndTheNewOneIsTriedAgain)
{
    const auto writer = join(store);
    const auto reader = join(store);
    EXPECT_TRUE(writer->set("old", "key"));
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    {
        const Limit none(RLIMIT_FSIZE, 0);
        EXPECT_FALSE(writer->set("new", "key"));
        EXPECT_FALSE(writer->participant->synchronize());
    }
    std::signal(SIGXFSZ, before);
    EXPECT_THAT(told(), ElementsAre(HasSubstr("-> Make room")));
    EXPECT_THAT(reader->participant->string("key"), Optional(std::string("old")));
    EXPECT_FALSE(std::ranges::any_of(std::filesystem::directory_iterator(folder), [](auto& file)
                                     { return file.path().filename().string()[0] == '.'; }));

    EXPECT_TRUE(writer->participant->synchronize());

    EXPECT_THAT(reader->participant->string("key"), Optional(std::string("new")));
}

TEST_F(KeyValueFaults, WithoutInotifyValuesAreKeptAndTheWatchBeginsOnceItCan)
{
    FileKeyValueStore anotherStore(worker.executor(), configuration());
    const auto other = join(anotherStore);
    const auto early = [this]
    {
        // A sanitizer needs descriptors for what it looks into when a thread begins.
        const Stop idle(worker);
        const int next = ::dup(STDIN_FILENO);
        ::close(next);
        // Every call that needs a descriptor fails.
        const Limit none(RLIMIT_NOFILE, static_cast<rlim_t>(next));
        return join(store);
    }();
    EXPECT_THAT(told(), ElementsAre(HasSubstr("-> Raise fs.inotify.max_user_instances")));

    EXPECT_TRUE(other->set("1", "missed"));
    EXPECT_TRUE(early->participant->synchronize());

    waitFor(*early, "missed");
}

TEST_F(KeyValueFaults, TheUsersFolderFollowsTheEnvironment)
{
    const struct
    {
        const char* state;
        const char* home;
        const char* expected;
    } rows[] = {
        {"/state", "/home/u", "/state/tessera/shared"},
        {nullptr, "/home/u", "/home/u/.local/state/tessera/shared"},
        {"state", "/home/u", "/home/u/.local/state/tessera/shared"},
        {"", "u", ""},
        {nullptr, nullptr, ""},
    };
    for (const auto& row : rows)
    {
        const Variable state("XDG_STATE_HOME", row.state);
        const Variable user("HOME", row.home);
        EXPECT_EQ(FileKeyValueStore::Configuration::ofUser().folder, row.expected);
    }

    FileKeyValueStore homeless(worker.executor(),
                               {.folder = {}, .diagnostics = configuration().diagnostics});
    const auto listener = join(homeless);
    EXPECT_FALSE(listener->set("1", "key"));
    EXPECT_THAT(told(), ElementsAre(HasSubstr("-> Set HOME")));
}
