#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <algorithm>
#include <random>

namespace platform
{
namespace
{

constexpr std::size_t longestFileName = 200;
constexpr std::string_view draftMark = ".new-";
constexpr std::string_view digits = "0123456789ABCDEF";

bool standsForItself(char byte, bool first)
{
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9') || byte == '_' || byte == '-' || (byte == '.' && !first);
}

}  // namespace

std::optional<std::string> fileNameOfKey(std::string_view key)
{
    std::string name;
    for (const char byte : key.substr(0, longestFileName + 1))
    {
        if (standsForItself(byte, name.empty()))
        {
            name += byte;
            continue;
        }
        const auto value = static_cast<unsigned char>(byte);
        name += {'%', digits[value >> 4], digits[value & 15]};
    }
    if (name.empty() || name.size() > longestFileName)
        return std::nullopt;
    return name;
}

std::optional<std::string> keyOfFileName(std::string_view name)
{
    std::string key;
    for (std::size_t at = 0; at < name.size(); ++at)
    {
        if (name[at] != '%')
        {
            key += name[at];
            continue;
        }
        if (name.size() - at < 3)
            return std::nullopt;
        const auto high = digits.find(name[at + 1]);
        const auto low = digits.find(name[at + 2]);
        if (high == digits.npos || low == digits.npos)
            return std::nullopt;
        key += static_cast<char>(high << 4 | low);
        at += 2;
    }
    // A key has one name only.
    if (fileNameOfKey(key) != name)
        return std::nullopt;
    return key;
}

std::string draftNameOfWriter(std::string_view writer)
{
    return std::string(draftMark).append(writer);
}

std::optional<std::string> writerOfDraftName(std::string_view name)
{
    if (!name.starts_with(draftMark))
        return std::nullopt;
    return std::string(name.substr(draftMark.size()));
}

std::string newWriter()
{
    std::random_device random;
    std::string writer(16, '0');
    std::ranges::generate(writer, [&] { return digits[random() & 15]; });
    return writer;
}

}  // namespace platform
