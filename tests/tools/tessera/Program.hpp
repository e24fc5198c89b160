#pragma once

#include "tests/tools/account-server/TestServer.hpp"

#include <boost/json/value.hpp>

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace commandline
{

using Arguments = std::vector<std::string>;

struct Ended
{
    int exitCode;
    std::string output;
    std::string errors;

    /// Standard output, which must be one line of JSON.
    boost::json::value json() const;
};

/// What a run gets beside its arguments.
struct Surroundings
{
    /// "NAME=value", in the place of what the tests have under these names.
    std::vector<std::string> variables;
    /// What can be read from descriptor 3.
    std::string third;
};

/// Runs the command line away from any terminal.
Ended run(const Arguments& arguments, const std::string& input = "",
          const Surroundings& surroundings = {});

/// The command line at a terminal of its own.
class AtTerminal
{
public:
    explicit AtTerminal(const Arguments& arguments, const Surroundings& surroundings = {});
    ~AtTerminal();
    AtTerminal(const AtTerminal&) = delete;
    AtTerminal& operator=(const AtTerminal&) = delete;

    /// Waits until this is on the screen, so many times; false when the program ends before, or
    /// says nothing for half a minute.
    bool shows(const std::string& text, int times = 1);
    void type(const std::string& text) const;
    bool echoes() const;

    /// Waits for the end; returns the exit code.
    int end();
    const std::string& screen() const { return screen_; }

private:
    bool readMore();

    int terminal_ = -1;
    pid_t child_ = -1;
    std::string screen_;
};

/// The folders of a user who keeps nothing yet, below this one, and no session bus: nothing that a
/// test does reaches those of whoever runs it.
Surroundings privateFolders(const std::filesystem::path& home);

/// An account server, and what a person who uses it has at hand.
struct Stage
{
    accountserver::TemporaryFolder folder;
    accountserver::TestServer server{settings(folder.path / "state")};
    const std::string environment = (folder.path / "state" / "environment.json").string();
    const std::filesystem::path home = folder.path / "home";
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
