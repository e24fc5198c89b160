#include "Platform/Basics/UserFolder.hpp"

#include <cstdlib>

namespace platform
{
namespace
{

std::filesystem::path absoluteFromEnvironment(const char* name)
{
    const char* value = std::getenv(name);
    std::filesystem::path path = value ? value : "";
    return path.is_absolute() ? path : std::filesystem::path();
}

}  // namespace

std::filesystem::path userFolder(const char* variable, const char* belowHome)
{
    if (auto named = absoluteFromEnvironment(variable); !named.empty())
        return named;
    const auto home = absoluteFromEnvironment("HOME");
    return home.empty() ? home : home / belowHome;
}

}  // namespace platform
