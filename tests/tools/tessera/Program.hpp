#pragma once

#include "tests/tools/Process.hpp"
#include "tests/tools/account-server/TestServer.hpp"

#include <filesystem>
#include <string>

namespace commandline
{

/// The folders of a user who keeps nothing yet, below this one, and no session bus: nothing that a
/// test does reaches those of whoever runs it.
Surroundings privateFolders(const std::filesystem::path& home);

/// An account server, and what a person who uses it has at hand.
struct Stage
{
    TemporaryFolder folder;
    accountserver::TestServer server{settings(folder.path() / "state")};
    const std::string environment = (folder.path() / "state" / "environment.json").string();
    const std::filesystem::path home = folder.path() / "home";
    const Surroundings surroundings = privateFolders(home);

    /// `arguments` and the environment file.
    Arguments with(Arguments arguments) const;
    Ended tessera(const Arguments& arguments, const std::string& input = "") const
    {
        return run(with(arguments), input, surroundings);
    }

    /// Has a code mailed, by the server alone.
    std::string code(const std::string& email = "anna@example.org") const;
    /// Signs in by the command line. Returns the token that is then stored.
    std::string signIn(const std::string& email = "anna@example.org") const;
    /// The stored token, or nothing; and another in its place, as from another program.
    std::string token() const;
    void store(const std::string& token) const;
    /// How many requests the server got so far.
    std::int64_t requests() const;

private:
    static accountserver::Settings settings(const std::filesystem::path& state);
};

}  // namespace commandline
