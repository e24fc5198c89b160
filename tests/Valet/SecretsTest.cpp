#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Valet/Valet.hpp"

#include "tests/support/MemoryScan.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using namespace platform;
using valet::Accessibility;
using valet::Valet;

namespace
{

std::shared_ptr<Keychain> embeddedKeychain(const TemporaryFolder& folder)
{
    EmbeddedItemStore::Configuration configuration;
    configuration.dataFolder = folder.path() / "data";
    configuration.keyFolder = folder.path() / "key";
    auto program = [] { return KeychainSurroundings{{.identifier = "writer"}, {}}; };
    return std::make_shared<StoreKeychain>(
        std::make_shared<EmbeddedItemStore>(std::move(configuration)), program);
}

bool isInAFile(std::string_view text, const std::filesystem::path& folder)
{
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
    {
        if (!entry.is_regular_file())
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string content(std::istreambuf_iterator<char>(in), {});
        if (content.find(text) != content.npos)
            return true;
    }
    return false;
}

// Sanitizers keep copies of memory of their own, in terabytes of address space.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool memoryIsOurs = false;
#elif defined(__has_feature)
constexpr bool memoryIsOurs = !__has_feature(thread_sanitizer) && !__has_feature(address_sanitizer);
#else
constexpr bool memoryIsOurs = true;
#endif

TEST(Secrets, LeaveNoCopyInTheMemoryOfTheProcessNorInAFile)
{
    if (!memoryIsOurs)
        GTEST_SKIP() << "a sanitizer's memory cannot be searched";
    const TemporaryFolder folder;
    const auto store =
        Valet::valet("Tokens", Accessibility::afterFirstUnlock, embeddedKeychain(folder));
    const UniqueText value(64);

    value.with([&](std::string_view text) { store->setString(text, "session"); });
    EXPECT_EQ(value.occurrences(), 0u) << "after the write";
    {
        const auto session = store->string("session");
        EXPECT_GE(value.occurrences(), 1u) << "a scan that finds nothing would show nothing";
        value.with([&](std::string_view text) { EXPECT_EQ(session.view(), text); });
    }
    EXPECT_EQ(value.occurrences(), 0u) << "after the value was released";
    value.with([&](std::string_view text) { EXPECT_FALSE(isInAFile(text, folder.path())); });

    store->removeObject("session");
    EXPECT_EQ(value.occurrences(), 0u) << "after the removal";
}

}  // namespace
