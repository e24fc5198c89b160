#pragma once

#include "Platform/Basics/Diagnostic.hpp"

#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace commandline
{

/// The classes of errors are the program's exit codes; `--help` and the manual page list them.
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

/// A failure that this program itself found.
class Failure final : public std::exception
{
public:
    explicit Failure(Report report) : report_(std::move(report)) {}

    const Report& report() const noexcept { return report_; }
    const char* what() const noexcept override { return report_.message.c_str(); }

private:
    Report report_;
};

/// Any error of this program, of the framework or of the language as one sentence and the next
/// step. No token, code or e-mail address becomes part of it.
Report reportOf(const std::exception_ptr& error);

}  // namespace commandline
