#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Basics/LocalizedError.hpp"

#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace commandline
{

/// The classes of errors are the programs' exit codes, with the same meaning in each; `--help` and
/// the manual pages list those that a program has.
enum class ExitCode
{
    success = 0,
    internal = 1,
    usage = 2,
    environment = 3,
    network = 4,
    refused = 5,
    signInNeeded = 6,
    verification = 7,
    // 8 has no meaning any more, and gets no other one.
    declined = 9,
    keychain = 10,
    itemNotFound = 11,
    fault = 12,
    interrupted = 130,
    terminated = 143,
};

/// The name of a class in JSON: "signInNeeded".
std::string_view className(ExitCode code);

/// One failure as a person or a script is told of it.
struct Report
{
    ExitCode exitCode;
    /// The case, for scripts: "URLError.timeout".
    std::string name;
    std::string message;
    std::string next;
    /// What lay behind it, as far as the layers below told: printed line by line before it.
    std::vector<platform::Diagnostic> diagnostics = {};
};

/// A failure that a program itself found.
class Failure final : public std::exception
{
public:
    explicit Failure(Report report) : report_(std::move(report)) {}

    const Report& report() const noexcept { return report_; }
    const char* what() const noexcept override { return report_.message.c_str(); }

private:
    Report report_;
};

/// An error of the framework. `next` takes the place of its own advice, unless it is empty.
Report report(ExitCode exitCode, const platform::LocalizedError& error,
              const std::string& next = {});

/// What to do where no connection was made. A proxy of the environment is named, never shown: its
/// address may hold a password.
std::string connectionAdvice();

/// What is told of an error of which nothing more is known.
Report unexpected(const std::exception& error);
Report unexpected();
/// The memory of the machine is used up.
Report outOfMemory();

}  // namespace commandline
