#include "tests/tools/tessera/KeychainHome.hpp"

#include "tools/account-server/Files.hpp"

#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>

namespace commandline
{
namespace
{

namespace fs = std::filesystem;

Arguments asKeychain(Arguments arguments)
{
    arguments.insert(arguments.begin(), "keychain");
    return arguments;
}

}  // namespace

Surroundings KeychainHome::surroundings(const std::string& third) const
{
    auto all = places.variables;
    all.insert(all.begin(), variables.begin(), variables.end());
    return {all, third};
}

Ended KeychainHome::keychain(Arguments arguments, const std::string& input,
                             const std::string& third) const
{
    return run(asKeychain(std::move(arguments)), input, surroundings(third));
}

AtTerminal KeychainHome::atTerminal(Arguments arguments) const
{
    return AtTerminal(asKeychain(std::move(arguments)), surroundings());
}

int KeychainHome::shell(const std::string& line) const
{
    std::string environment;
    for (const auto& variable : surroundings().variables)
        environment += "export '" + variable + "'; ";
    return WEXITSTATUS(std::system((environment + line).c_str()));
}

std::map<std::string, std::string> KeychainHome::snapshot() const
{
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
    {
        struct stat status = {};
        ::lstat(entry.path().c_str(), &status);
        // The runtime folder is where programs come and go.
        const bool isRuntime = entry.path().filename() == "run";
        const auto time =
            isRuntime ? 0 : status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec;
        all[entry.path().string()] =
            std::to_string(status.st_mode) + " " + std::to_string(status.st_uid) + " " +
            std::to_string(status.st_ino) + " " + std::to_string(time) + " " +
            (entry.is_regular_file() ? accountserver::readFile(entry.path()).value_or("?") : "");
    }
    return all;
}

}  // namespace commandline
