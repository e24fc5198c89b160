#pragma once

#include <boost/json/value.hpp>

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
    std::string third = "";
    std::string program = TESSERA_PROGRAM;
};

/// Runs a command-line program away from any terminal.
Ended run(const Arguments& arguments, const std::string& input = "",
          const Surroundings& surroundings = {});

/// A command-line program at a terminal of its own.
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
    void signal(int number) const;
    void resize(unsigned short columns) const;
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

}  // namespace commandline
