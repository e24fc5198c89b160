#include "Platform/Security/SecretBytes.hpp"

#include <gtest/gtest.h>

#include <concepts>
#include <cstring>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

using namespace platform;

namespace
{

std::span<const std::byte> bytesOf(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

/// The part of /proc/self/smaps that describes the mapping which holds `address`.
std::string mappingOf(const void* address)
{
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    std::string found;
    bool inside = false;
    for (std::string line; std::getline(maps, line);)
    {
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        char dash = 0;
        std::istringstream range(line);
        if (line.find('-') < line.find(' ') && range >> std::hex >> from >> dash >> to)
            inside = from <= wanted && wanted < to;
        if (inside)
            found += line + "\n";
    }
    return found;
}

template <class T>
concept Printable = requires(std::ostream& out, const T& value) { out << value; };

}  // namespace

static_assert(!Printable<SecretString> && !Printable<SecretBytes>);
static_assert(!std::convertible_to<SecretString, std::string_view>);
static_assert(!std::convertible_to<SecretString, std::string>);

TEST(SecretBytes, GrowsMovesAndCutsLikeAContainer)
{
    SecretBytes bytes;
    std::string expected;
    for (int i = 0; i < 500; ++i)
    {
        bytes.append(bytesOf("0123456789"));
        expected += "0123456789";
    }
    SecretBytes copy = bytes;
    copy.append(copy.view().subspan(0, 5000));

    EXPECT_EQ(bytes, SecretBytes(bytesOf(expected)));
    EXPECT_EQ(copy, SecretBytes(bytesOf(expected + expected)));
    const SecretBytes moved = std::move(copy);
    EXPECT_TRUE(copy.empty());
    bytes.resize(3);
    bytes.resize(5);
    EXPECT_EQ(bytes, SecretBytes(bytesOf(std::string_view("012\0\0", 5))));
    EXPECT_NE(bytes, moved);
    EXPECT_EQ(SecretBytes(), SecretBytes(bytesOf("")));
}

TEST(SecretBytes, IsLeftOutOfCoreDumpsWhateverItsSize)
{
    for (const std::size_t size : {std::size_t{20}, std::size_t{5000}, std::size_t{300'000}})
    {
        SecretBytes secret;
        secret.resize(size);

        const auto mapping = mappingOf(secret.view().data());

        const auto flags = mapping.find("VmFlags:");
        ASSERT_NE(flags, std::string::npos) << "no mapping found for " << size;
        EXPECT_NE(mapping.find(" dd", flags), std::string::npos) << mapping;
    }
}

// Reads memory that was given back to the pool, on purpose: what is wiped is seen only there.
TEST(SecretBytes, IsWipedWhenReleasedReplacedGrownAndCut)
{
    const std::string marker = "marker-of-a-secret-that-must-go";
    const auto stillThere = [&](const std::byte* memory)
    { return std::memcmp(memory, marker.data(), marker.size()) == 0; };
    SecretBytes released(bytesOf(marker));
    SecretBytes replaced(bytesOf(marker));
    SecretBytes grown(bytesOf(marker));
    SecretBytes cut(bytesOf(marker));
    const std::vector<const std::byte*> places{released.view().data(), replaced.view().data(),
                                               grown.view().data(), cut.view().data()};
    for (const auto* place : places)
        ASSERT_TRUE(stillThere(place));

    released.clear();
    replaced = SecretBytes();
    grown.reserve(4096);
    cut.resize(1);

    for (const auto* place : places)
        EXPECT_NE(std::memcmp(place + 16, marker.data() + 16, marker.size() - 16), 0);
}
