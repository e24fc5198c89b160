#include "tools/fetch/Failure.hpp"

#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Networking/URLError.hpp"

#include <csignal>
#include <new>

namespace fetch
{
namespace
{

using commandline::ExitCode;
using commandline::Report;
using Code = platform::URLError::Code;

/// Where this program knows better than the framework what to do.
std::string nextStep(Code code)
{
    switch (code)
    {
        case Code::connectionRefused:
            return commandline::connectionAdvice();
        case Code::timeout:
            return "Allow more time with --time-limit, or try again later.";
        case Code::tooLarge:
            return "Allow more with --body-limit; it is held in memory.";
        case Code::tls:
            return "Check the date of this machine, or name the server's authority with "
                   "--authority.";
        default:
            return "";
    }
}

ExitCode exitCodeOf(Code code)
{
    switch (code)
    {
        case Code::insecureURL:
        case Code::invalidMethod:
        case Code::invalidHeader:
            return ExitCode::usage;
        case Code::unreadableFile:
            return ExitCode::environment;
        default:
            return ExitCode::network;
    }
}

std::string nextStepAfter(int status)
{
    constexpr int redirects = 3;
    constexpr int faultsOfServers = 5;
    constexpr int tooManyRequests = 429;
    if (status / 100 == redirects)
        return "Redirects are not followed. Look in a browser where the address leads, and give "
               "that one; often a slash at the end is missing, or too much.";
    if (status / 100 == faultsOfServers || status == tooManyRequests)
        return "Try again later, or with --retries.";
    return "Check the address and the headers.";
}

}  // namespace

Report reportOf(const std::exception_ptr& error, int signal)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const commandline::Failure& failure)
    {
        return failure.report();
    }
    catch (const platform::URLError& failure)
    {
        return report(exitCodeOf(failure.code()), failure, nextStep(failure.code()));
    }
    catch (const platform::CancellationError& cancelled)
    {
        return report(signal == SIGTERM ? ExitCode::terminated : ExitCode::interrupted, cancelled,
                      "Run the command again.");
    }
    catch (const std::bad_alloc&)
    {
        auto report = commandline::outOfMemory();
        report.next = "An answer is held in memory until it is whole: close other programs.";
        return report;
    }
    catch (const std::exception& other)
    {
        return commandline::unexpected(other);
    }
    catch (...)
    {
        return commandline::unexpected();
    }
}

Report refusal(const platform::URLResponse& response, const platform::SecretBytes& body)
{
    const int status = platform::httpStatusCode(response);
    const auto number = std::to_string(status);
    auto message = "The server answered with status " + number;
    const platform::SecretString text(body);
    const auto mismatch = nettasks::AsyncURLSessionDataTaskDecodingError::errorTypeMismatch(
        platform::repairedUTF8(text.view()));
    if (!body.empty())
        message += ": \"" + mismatch.errorDescription() + "\"";
    return {ExitCode::refused, "status." + number, message + ".", nextStepAfter(status)};
}

commandline::Failure unreadable(const std::filesystem::path& file, const std::string& why)
{
    return commandline::Failure({ExitCode::environment, "unreadableFile",
                                 "The file \"" + file.string() + "\" cannot be used (" + why + ").",
                                 "Check its name and its permissions."});
}

}  // namespace fetch
