// A store file of any bytes, beside a good key: an operation ends with a status, and what is read
// is what was once written. The first four bytes choose where one of the fixture's bytes is
// changed; a longer input is the whole file.

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "tests/fuzz/Require.hpp"

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <unistd.h>

using namespace platform;
namespace fs = std::filesystem;

namespace
{

std::string contentOf(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path& file, std::string_view content)
{
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
}

/// Two items in a store of the process's own, and what its files hold.
struct Original
{
    Original()
    {
        auto pattern = (fs::temp_directory_path() / "tessera-fuzz-XXXXXX").string();
        require(mkdtemp(pattern.data()) != nullptr);
        folder = pattern;
        {
            EmbeddedItemStore store(configuration());
            for (const char* account : {"one", "two"})
                require(store.add(item(account)) == KeychainStatus::success);
        }
        database = contentOf(folder / "data" / "keychain.db");
        require(!database.empty());
    }

    EmbeddedItemStore::Configuration configuration() const
    {
        EmbeddedItemStore::Configuration made;
        made.dataFolder = folder / "data";
        made.keyFolder = folder / "key";
        made.patience = std::chrono::milliseconds(50);
        return made;
    }

    static KeychainItem item(std::string account)
    {
        const std::string value = "value of " + account;
        return {.identity = {.service = "fuzz", .account = std::move(account), .accessGroup = "g"},
                .data = SecretBytes(std::as_bytes(std::span(value)))};
    }

    fs::path folder;
    std::string database;
};

ItemPattern everything()
{
    ItemPattern pattern;
    pattern.accessGroups = {"g"};
    return pattern;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const Original original;
    auto content = original.database;
    if (size > 64)
        content.assign(reinterpret_cast<const char*>(data), size);
    else
        for (; size >= 4; data += 4, size -= 4)
            content[(data[0] | data[1] << 8 | data[2] << 16) % content.size()] = char(data[3]);

    const auto folder = original.folder / "data";
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename() != "keychain.db")
            fs::remove(entry.path());
    write(folder / "keychain.db", content);

    EmbeddedItemStore store(original.configuration());
    const auto found = store.copyMatching(everything(), ItemContent::attributesAndData, 10);
    require(found.status != KeychainStatus::itemNotFound);
    for (const auto& item : found.items)
        require(item == Original::item(item.identity.account));
    require(found.status != KeychainStatus::success || found.items.size() == 2);
    auto absent = everything();
    absent.account = "absent";
    store.deleteMatching(absent);
    store.add(Original::item("three"));
    return 0;
}
