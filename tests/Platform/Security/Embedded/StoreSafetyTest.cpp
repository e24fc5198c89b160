#include "Platform/Security/Embedded/EmbeddedInspection.hpp"
#include "tests/Platform/Security/Embedded/EmbeddedStoreHost.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <variant>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace platform;
using enum KeychainStatus;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// Whether an inspection, which opens nothing, finds nothing wrong either.
bool looksProper(const StorePlaces& places)
{
    using enum EmbeddedFile::Condition;
    const auto files = inspectFiles(places);
    const EmbeddedFile all[] = {files.dataFolder, files.keyFolder, files.database, files.log,
                                files.logIndex,   files.rollback,  files.key,      files.lock};
    return std::ranges::all_of(all, [](const EmbeddedFile& file)
                               { return file.condition == proper || file.condition == missing; });
}

void moveBehindLink(const fs::path& path)
{
    const auto real = path.string() + ".real";
    fs::rename(path, real);
    fs::create_symlink(real, path);
}

struct Refusal
{
    const char* name;
    std::function<void(const StorePlaces&)> spoil;
    const char* cause;
    const char* nextStep;
};

TEST(StoreSafety, RefusesWhatIsNotTheUsersAlone)
{
    const auto chmod = [](fs::path StorePlaces::* path, mode_t mode)
    { return [=](const StorePlaces& places) { ::chmod((places.*path).c_str(), mode); }; };
    const auto link = [](fs::path StorePlaces::* path)
    { return [=](const StorePlaces& places) { moveBehindLink(places.*path); }; };
    const auto give = [](fs::path StorePlaces::* path)
    {
        return [=](const StorePlaces& places)
        {
            if (::lchown((places.*path).c_str(), 54321, 54321) != 0)
                moveBehindLink(places.*path);  // only root can give files away
        };
    };
    const bool root = ::geteuid() == 0;
    const char* stranger = root ? "belongs to another user" : "symbolic link";
    const Refusal refusals[] = {
        {"open data folder", chmod(&StorePlaces::dataFolder, 0750), "open to other", "chmod 700"},
        {"open key folder", chmod(&StorePlaces::keyFolder, 0701), "open to other", "chmod 700"},
        {"open database", chmod(&StorePlaces::database, 0640), "open to other", "chmod 600"},
        {"open key", chmod(&StorePlaces::key, 0604), "open to other", "chmod 600"},
        {"linked data folder", link(&StorePlaces::dataFolder), "symbolic link", "real one"},
        {"linked key folder", link(&StorePlaces::keyFolder), "symbolic link", "real one"},
        {"linked database", link(&StorePlaces::database), "symbolic link", "real one"},
        {"linked key", link(&StorePlaces::key), "symbolic link", "real one"},
        {"linked log", [](const StorePlaces& places)
         { fs::create_symlink("/dev/null", places.log); }, "symbolic link", "real one"},
        {"stranger's folder", give(&StorePlaces::dataFolder), stranger, ""},
        {"stranger's key", give(&StorePlaces::key), stranger, ""},
        {"stranger's database", give(&StorePlaces::database), stranger, ""},
        {"folder for a key",
         [](const StorePlaces& places)
         {
             fs::remove(places.key);
             fs::create_directory(places.key);
         },
         "not a regular file", "Move it"},
        {"file for a folder",
         [](const StorePlaces& places)
         {
             fs::remove_all(places.dataFolder);
             EmbeddedStoreHost::setContent(places.dataFolder, "");
         },
         "not a folder", "Move it"},
    };

    for (const auto& refusal : refusals)
    {
        SCOPED_TRACE(refusal.name);
        EmbeddedStoreHost host;
        keep(host);
        EXPECT_TRUE(looksProper(host.places));
        refusal.spoil(host.places);
        EXPECT_FALSE(looksProper(host.places));
        auto store = host.open();

        EXPECT_EQ(valueOf(store, "key"), "= -25291");
        EXPECT_EQ(host.diagnostics.size(), 1U);
        EXPECT_THAT(host.reported(),
                    testing::AllOf(HasSubstr(refusal.cause), HasSubstr(refusal.nextStep)));
        EXPECT_EQ(put(store, "absent", "value"), notAvailable);
    }
}

TEST(StoreSafety, AnInspectionTellsWhatIsThereOrWhyItCannotBeTold)
{
    EmbeddedStoreHost host;
    EXPECT_EQ(inspectKey(host.places), Inspected<EmbeddedKey>(EmbeddedKey{}));
    EXPECT_FALSE(fs::exists(host.places.keyFolder));
    {
        auto store = host.open();
        ASSERT_EQ(put(store, "key", "value"), success);
        ASSERT_EQ(put(store, "other key", "value"), success);
    }

    EXPECT_EQ(inspectKey(host.places),
              Inspected<EmbeddedKey>(EmbeddedKey{.isThere = true, .isWrapped = false}));
    const EmbeddedContent expected{.format = 1, .oldestReader = 1, .items = 2};
    EXPECT_EQ(inspectContent(host.configuration()), Inspected<EmbeddedContent>(expected));

    EmbeddedStoreHost::setContent(host.places.key, "no key");
    for (const auto& fault : {std::get<Diagnostic>(inspectKey(host.places)),
                              std::get<Diagnostic>(inspectContent(host.configuration()))})
        EXPECT_THAT(fault.cause, HasSubstr("key file is damaged"));
}

TEST(StoreSafety, FollowsLinksAboveItsFolders)
{
    EmbeddedStoreHost host;
    const auto real = host.folder.path() / "elsewhere";
    fs::create_directory(real);
    fs::create_symlink(real, host.folder.path() / "data");
    auto store = host.open();

    EXPECT_EQ(put(store, "key", "value"), success) << host.reported();

    EXPECT_TRUE(fs::exists(real / "tessera" / "keychain" / "keychain.db"));
}

TEST(StoreSafety, ADatabaseWithoutItsKeyAndAKeyWithoutItsDatabaseAreNoFirstStart)
{
    EmbeddedStoreHost stranger;
    keep(stranger, "key", "other");
    struct Row
    {
        const char* name;
        std::function<void(const StorePlaces&)> spoil;
        const char* cause;
    };
    const Row rows[] = {
        {"no key", [](const auto& places) { fs::remove(places.key); }, "key file is missing"},
        {"another key", [&](const auto& places)
         { fs::copy_file(stranger.places.key, places.key, fs::copy_options::overwrite_existing); },
         "not the one of the keychain file"},
        {"half a key", [](const auto& places) { fs::resize_file(places.key, 80); }, "damaged"},
        {"empty key", [](const auto& places) { fs::resize_file(places.key, 0); }, "damaged"},
        {"no database", [](const auto& places) { fs::remove(places.database); },
         "missing or empty"},
        {"empty database", [](const auto& places) { fs::resize_file(places.database, 0); },
         "missing or empty"},
        {"no folder", [](const auto& places) { fs::remove_all(places.dataFolder); },
         "missing or empty"},
    };

    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.name);
        EmbeddedStoreHost host;
        keep(host);
        const TemporaryFolder copy;
        fs::copy(host.folder.path(), copy.path(), fs::copy_options::recursive);
        row.spoil(host.places);
        auto store = host.open();

        EXPECT_EQ(valueOf(store, "key"), "= -25291");
        const auto report = host.reported();
        EXPECT_THAT(report, HasSubstr(row.cause));
        if (std::string_view(row.cause).find("missing") != std::string_view::npos)
        {
            EXPECT_THAT(report, testing::AllOf(HasSubstr(host.places.key.string()),
                                               HasSubstr(host.places.database.string()),
                                               HasSubstr("-> Compare XDG_CONFIG_HOME")));
        }
        EXPECT_EQ(valueOf(store, "absent"), "= -25291");
        EXPECT_EQ(put(store, "key", "new"), notAvailable);

        // What belongs together, put back, works in the very same store.
        fs::remove_all(host.folder.path() / "data");
        fs::remove_all(host.folder.path() / "config");
        fs::copy(copy.path(), host.folder.path(), fs::copy_options::recursive);
        EXPECT_EQ(valueOf(store, "key"), "value") << host.reported();
    }
}

TEST(StoreSafety, ALogAloneIsNoFirstStart)
{
    EmbeddedStoreHost host;
    fs::create_directories(host.places.dataFolder);
    ::chmod(host.places.dataFolder.c_str(), 0700);
    host.setContent(host.places.log, "frames");
    auto store = host.open();

    EXPECT_EQ(put(store, "key", "value"), notAvailable);

    EXPECT_THAT(host.reported(), testing::AllOf(HasSubstr(host.places.log.string() + " is there"),
                                                HasSubstr("-> Compare XDG_CONFIG_HOME")));
    EXPECT_TRUE(fs::exists(host.places.log));
}

TEST(StoreSafety, DoesNotAcknowledgeWhatWentWithItsFiles)
{
    for (const auto taken : {&StorePlaces::database, &StorePlaces::log})
    {
        EmbeddedStoreHost host;
        auto store = host.open();
        ASSERT_EQ(put(store, "key", "value"), success);

        EXPECT_EQ(store.update(itemNamed("key", "").identity,
                               [&](const SecretBytes*) -> std::optional<SecretBytes>
                               {
                                   fs::remove(host.places.*taken);
                                   return bytes("new");
                               }),
                  inputOutput);

        EXPECT_THAT(host.reported(), HasSubstr("replaced or removed while"));
    }
}

TEST(StoreSafety, NoticesFilesThatChangeUnderIt)
{
    EmbeddedStoreHost host;
    keep(host, "key", "old");
    const auto copy = host.places.dataFolder / "copy";
    fs::copy_file(host.places.database, copy);
    auto store = host.open();
    ASSERT_EQ(put(store, "key", "new"), success);

    fs::rename(host.places.database, host.places.dataFolder / "away");
    EXPECT_EQ(valueOf(store, "key"), "= -25291");
    EXPECT_EQ(put(store, "key", "newer"), notAvailable);

    fs::remove(host.places.log);
    fs::remove(host.places.logIndex);
    fs::rename(copy, host.places.database);
    EXPECT_EQ(valueOf(store, "key"), "old") << host.reported();
}

/// Writes in a process of its own that is killed with everything open.
void writeAndBeKilled(EmbeddedStoreHost& host, const std::vector<std::string>& accounts)
{
    const pid_t child = ::fork();
    if (child == 0)
    {
        auto store = host.open();
        for (const auto& account : accounts)
        {
            if (put(store, account, "value") != success)
                ::_exit(1);
        }
        ::kill(::getpid(), SIGKILL);
    }
    int ended = 0;
    ASSERT_EQ(::waitpid(child, &ended, 0), child);
    ASSERT_TRUE(WIFSIGNALED(ended));
}

TEST(StoreSafety, ALogThatWasNeededAndIsGoneDoesNotReadAsAbsence)
{
    for (const bool emptied : {false, true})
    {
        EmbeddedStoreHost host;
        writeAndBeKilled(host, {"first", "second", "third"});
        if (emptied)
            fs::resize_file(host.places.log, 0);
        else
            fs::remove(host.places.log);

        // For good, not only for the store that noticed it.
        for (int round = 0; round < 2; ++round)
        {
            host.diagnostics.clear();
            auto store = host.open();
            EXPECT_EQ(valueOf(store, "first"), "value");
            EXPECT_EQ(host.diagnostics.size(), 1U);
            EXPECT_THAT(host.reported(), HasSubstr("older than they were"));
            EXPECT_EQ(valueOf(store, "third"), "= -25291");
            EXPECT_THAT(host.reported(), HasSubstr("keychain.db-wal"));
            EXPECT_EQ(store.deleteMatching(patternOf("third")), notAvailable);
            EXPECT_EQ(put(store, "fourth", "value"), success);
        }
    }
}

TEST(StoreSafety, WhatAKilledWriterStoredIsThere)
{
    EmbeddedStoreHost host;
    writeAndBeKilled(host, {"first", "second"});
    writeAndBeKilled(host, {"third"});

    auto store = host.open();
    EXPECT_EQ(store.copyMatching(patternOfAll(), ItemContent::attributesAndData, 9).items.size(),
              3U);
    EXPECT_EQ(valueOf(store, "fourth"), "= -25300") << host.reported();
}

TEST(StoreSafety, DamageIsToldFromAbsence)
{
    EmbeddedStoreHost host;
    {
        auto store = host.open();
        for (const char* account : {"one", "two", "three"})
            ASSERT_EQ(put(store, account, "value of " + std::string(account)), success);
    }
    const auto whole = host.content(host.places.database);
    const auto wholeKey = host.content(host.places.key);
    const auto read = [&]() -> std::string
    {
        auto store = host.open();
        for (const char* account : {"one", "two", "three"})
        {
            const auto value = valueOf(store, account);
            if (value != "value of " + std::string(account) && value != "= -26275" &&
                value != "= -25291")
                return std::string(account) + ": " + value;
        }
        const auto list = store.copyMatching(patternOfAll(), ItemContent::attributes, 9);
        return list.status == success && list.items.size() != 3 ? "a list of another length" : "";
    };

    // Every few bytes here; the long run flips them all.
    for (std::size_t at = 0; at < whole.size(); at += at < 128 ? 1 : 13)
    {
        auto flipped = whole;
        flipped[at] = static_cast<char>(flipped[at] ^ (at % 2 == 0 ? 0xff : 0x01));
        host.setContent(host.places.database, flipped);
        ASSERT_EQ(read(), "") << "byte " << at;
        fs::remove(host.places.log);
        fs::remove(host.places.logIndex);
    }
    for (const std::size_t size : {1, 99, 512, 4096, 5000, 8192, 12287})
    {
        host.setContent(host.places.database, whole.substr(0, size));
        ASSERT_EQ(read(), "") << "cut to " << size;
        fs::remove(host.places.log);
        fs::remove(host.places.logIndex);
    }
    host.setContent(host.places.database, whole);
    for (std::size_t at = 0; at < wholeKey.size(); ++at)
    {
        auto flipped = wholeKey;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
        host.setContent(host.places.key, flipped);
        auto store = host.open();
        ASSERT_EQ(valueOf(store, "one"), "= -25291") << "byte " << at << " of the key";
    }
    host.setContent(host.places.key, wholeKey);
    host.diagnostics.clear();
    EXPECT_EQ(read(), "");
    EXPECT_EQ(host.reported(), "");
}

}  // namespace
