#pragma once

#include <stdexcept>
#include <string>

namespace accountserver
{

/// The program's exit codes; `--help` lists them.
enum class ExitCode
{
    success = 0,
    failed = 1,
    usage = 2,
    state = 3,
    address = 4,
    noMail = 5,
};

/// Why the server cannot start or go on: one sentence and the next step, for the person at the
/// terminal. It ends the program with `exitCode()`.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode exitCode, const std::string& sentence)
        : std::runtime_error(sentence), exitCode_(exitCode)
    {}

    ExitCode exitCode() const { return exitCode_; }

private:
    ExitCode exitCode_;
};

}  // namespace accountserver
