#pragma once

#include "tests/tools/tessera/Program.hpp"

#include <filesystem>
#include <map>
#include <string>

namespace commandline
{

/// A home folder in which nothing was kept yet, without a session bus.
struct KeychainHome
{
    TemporaryFolder folder;
    const std::filesystem::path data = folder.path() / "data" / "tessera" / "keychain";
    const std::filesystem::path keys = folder.path() / "config" / "tessera";
    const std::filesystem::path database = data / "keychain.db";
    const std::filesystem::path key = keys / "keychain.key";
    const Surroundings places = privateFolders(folder.path());

    /// "NAME=value", in the place of what `places` has under these names.
    std::vector<std::string> variables = {};

    Surroundings surroundings(const std::string& third = "") const;

    /// "keychain" and the arguments; what is read from descriptor 3 is the passphrase or the
    /// passcode.
    Ended keychain(Arguments arguments, const std::string& input = "",
                   const std::string& third = "") const;
    AtTerminal atTerminal(Arguments arguments) const;
    /// The exit code of what a shell makes of the line, with the folders of this home.
    int shell(const std::string& line) const;

    /// All there is below the home, by path: kind and mode, owner, number, time of the last change,
    /// and content.
    std::map<std::string, std::string> snapshot() const;
};

}  // namespace commandline
