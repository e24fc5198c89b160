#include "Platform/Security/Embedded/Database.hpp"
#include "Platform/Security/Embedded/ItemTable.hpp"
#include "Platform/Security/Embedded/KeyFile.hpp"
#include "tests/Platform/Security/Embedded/EmbeddedStoreHost.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

namespace
{

using namespace platform;
using enum KeychainStatus;
using testing::HasSubstr;
namespace fs = std::filesystem;

/// What the committed files hold. Their key protects nothing else.
std::vector<KeychainItem> fixtureItems()
{
    auto plain = itemNamed("plain", "a value");
    auto nul = itemNamed(std::string("nul\0\xc3\xa4", 6), std::string_view("\0\xff", 2));
    nul.identity.synchronizable = true;
    auto long_ = itemNamed("long", std::string(9000, 'x'));
    long_.identity.accessGroup = "group.shared";
    long_.accessible = KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock;
    auto guarded = itemNamed("guarded", "sealed by others");
    guarded.accessible = KeychainAccessible::kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly;
    guarded.accessControl = AccessControlFlag::currentFingerprintSet;
    return {plain, nul, long_, guarded};
}

const char* const fixturePassphrase = "fixture passphrase";

/// Makes the files of the current format: run it once for each format that is released, with
/// TESSERA_FIXTURE naming the new folder, and commit what it leaves.
TEST(StoreFormat, DISABLED_MakesFixture)
{
    const char* folder = std::getenv("TESSERA_FIXTURE");
    ASSERT_TRUE(folder);
    EmbeddedStoreHost host;
    {
        auto store = host.open();
        for (const auto& item : fixtureItems())
            ASSERT_EQ(store.add(item), success);
    }
    fs::create_directories(folder);
    fs::copy_file(host.places.key, fs::path(folder) / "plain.key");
    auto store = host.open();
    ASSERT_EQ(store.changePassphrase(std::nullopt, SecretString(fixturePassphrase)), success);
    fs::copy_file(host.places.database, fs::path(folder) / "keychain.db");
    fs::copy_file(host.places.key, fs::path(folder) / "wrapped.key");
}

TEST(StoreFormat, FilesOfEveryReleasedVersionStayReadableAndWritable)
{
    for (const char* version : {"1"})
    {
        for (const char* key : {"plain.key", "wrapped.key"})
        {
            SCOPED_TRACE(std::string("version ") + version + ", " + key);
            EmbeddedStoreHost host;
            const auto fixture = fs::path(TESSERA_FIXTURES) / version;
            for (const auto& [from, to] : {std::pair{fixture / "keychain.db", host.places.database},
                                           std::pair{fixture / key, host.places.key}})
            {
                fs::create_directories(to.parent_path());
                fs::copy_file(from, to);
                fs::permissions(to.parent_path(), fs::perms::owner_all);
                fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write);
            }
            auto configuration = host.configuration();
            configuration.passphrase = [] { return SecretString(fixturePassphrase); };
            EmbeddedItemStore store(configuration);

            for (const auto& item : fixtureItems())
            {
                ItemPattern pattern;
                pattern.service = item.identity.service;
                pattern.account = item.identity.account;
                pattern.accessGroups = {item.identity.accessGroup};
                pattern.synchronizable = item.identity.synchronizable;
                const auto found = store.copyMatching(pattern, ItemContent::attributesAndData, 1);
                ASSERT_EQ(found.status, success) << host.reported();
                EXPECT_TRUE(found.items.at(0) == item) << item.identity.account.c_str();
            }
            EXPECT_EQ(valueOf(store, "absent"), "= -25300");
            EXPECT_EQ(put(store, "absent", "value"), success);
        }
    }
}

TEST(StoreFormat, AnItemThatWasSpoiledInOneGroupIsNotReplacedByThatOfAnother)
{
    struct Row
    {
        const char* spoil;
        const char* value;
    };
    for (const auto& row :
         {Row{"DELETE FROM item WHERE accessGroup = x'6731'", "= -26275"},
          Row{"UPDATE item SET value = zeroblob(60) WHERE accessGroup = x'6731'", "= -26275"},
          Row{"UPDATE item SET seal = zeroblob(length(seal)) WHERE accessGroup = x'6731'",
              "= -26275"},
          Row{"UPDATE item SET account = x'00' WHERE accessGroup = x'6731'", "= -26275"},
          Row{"DELETE FROM item WHERE accessGroup = x'6733'", "of g1"}})
    {
        SCOPED_TRACE(row.spoil);
        EmbeddedStoreHost host;
        {
            auto store = host.open();
            for (const char* group : {"g1", "g2", "g3"})
            {
                auto item = itemNamed("key", std::string("of ") + group);
                item.identity.accessGroup = group;
                ASSERT_EQ(store.add(item), success);
            }
        }
        {
            const Patience patience(std::chrono::seconds(1));
            Database database(host.places.database, "", patience);
            database.execute(row.spoil);
            ASSERT_TRUE(database.merge());
        }
        auto store = host.open();
        auto pattern = patternOf("key");
        const auto read = [&](std::vector<std::string> groups)
        {
            pattern.accessGroups = std::move(groups);
            const auto found = store.copyMatching(pattern, ItemContent::attributesAndData, 1);
            return found.status == success ? text(found.items.at(0).data)
                                           : "= " + std::to_string(static_cast<int>(found.status));
        };

        EXPECT_EQ(read({"g1", "g2"}), row.value);
        EXPECT_EQ(read({"g2", "g1"}), "of g2");
    }
}

/// Opens the file of a closed store below all checks, and changes its header as a later version, or
/// an attacker who has the key, might.
void changeHeader(EmbeddedStoreHost& host, const std::function<void(StoreHeader&)>& change)
{
    const auto bytes = host.content(host.places.key);
    const auto key = KeyFile::decoded(std::as_bytes(std::span(bytes))).unwrapped(SecretString());
    const Patience patience(std::chrono::seconds(1));
    Database database(host.places.database, "", patience);
    Transactions transactions(database);
    ItemTable table(database, key);
    {
        Transaction transaction(transactions, Transaction::Kind::write);
        auto header = table.header();
        change(header);
        table.write(header);
        transaction.commit();
    }
    ASSERT_TRUE(database.merge());
}

struct VersionRow
{
    std::uint32_t format;
    std::uint32_t oldestReader;
    const char* value;
    const char* report;
};

TEST(StoreFormat, OpensLaterFormatsOnlyIfTheyLetItIn)
{
    for (const auto& row :
         {VersionRow{2, 1, "value", ""}, VersionRow{2, 2, "= -25291", "format 2 and may be opened"},
          VersionRow{7, 5, "= -25291", "programs of format 5 or later"}})
    {
        SCOPED_TRACE(row.format);
        EmbeddedStoreHost host;
        keep(host);
        changeHeader(host,
                     [&](StoreHeader& header)
                     {
                         header.format = row.format;
                         header.oldestReader = row.oldestReader;
                         header.further = bytes("a later field");
                     });
        {
            auto store = host.open();
            EXPECT_EQ(valueOf(store, "key"), row.value);
            EXPECT_THAT(host.reported(), HasSubstr(row.report));
            EXPECT_EQ(put(store, "other", "value"), row.oldestReader == 1 ? success : notAvailable);
        }
        if (row.oldestReader > 1)
            continue;
        // What this program does not know is still there after it wrote.
        changeHeader(host,
                     [&](StoreHeader& header)
                     {
                         EXPECT_EQ(header.format, row.format);
                         EXPECT_TRUE(header.further == bytes("a later field"));
                         EXPECT_EQ(header.items, 2U);
                     });
    }
}

TEST(StoreFormat, CountAndDigestAreHeldAgainstTheItems)
{
    const std::function<void(StoreHeader&)> lies[] = {
        [](StoreHeader& header) { ++header.items; },
        [](StoreHeader& header) { --header.items; },
        [](StoreHeader& header) { header.digest.add(ItemMark{std::byte{1}}); },
    };
    for (const auto& lie : lies)
    {
        EmbeddedStoreHost host;
        {
            auto store = host.open();
            ASSERT_EQ(put(store, "key", "value"), success);
            ASSERT_EQ(put(store, "other", "value"), success);
        }
        changeHeader(host, lie);
        auto store = host.open();

        EXPECT_EQ(valueOf(store, "key"), "value");
        EXPECT_EQ(valueOf(store, "absent"), "= -26275");
        EXPECT_EQ(store.copyMatching(patternOfAll(), ItemContent::attributes, 9).status, damaged);
        EXPECT_EQ(store.deleteMatching(patternOf("absent")), damaged);
        EXPECT_THAT(host.reported(), HasSubstr("damaged"));
    }
}

}  // namespace
