#include "tools/shared/Failure.hpp"

#include "Platform/Coding/Text.hpp"

#include <cstdlib>

namespace commandline
{
namespace
{

/// A description of the framework is a sentence and, mostly, a second one that says what to do.
std::pair<std::string, std::string> sentenceAndRest(const std::string& description)
{
    const auto end = description.find(". ");
    if (end == std::string::npos)
        return {description, ""};
    return {description.substr(0, end + 1), description.substr(end + 2)};
}

}  // namespace

std::string_view className(ExitCode code)
{
    switch (code)
    {
        case ExitCode::success:
            return "success";
        case ExitCode::internal:
            return "internal";
        case ExitCode::usage:
            return "usage";
        case ExitCode::environment:
            return "environment";
        case ExitCode::network:
            return "network";
        case ExitCode::refused:
            return "refused";
        case ExitCode::signInNeeded:
            return "signInNeeded";
        case ExitCode::verification:
            return "verification";
        case ExitCode::declined:
            return "declined";
        case ExitCode::keychain:
            return "keychain";
        case ExitCode::itemNotFound:
            return "itemNotFound";
        case ExitCode::fault:
            return "fault";
        case ExitCode::interrupted:
        case ExitCode::terminated:
            return "interrupted";
    }
    return "internal";
}

Report report(ExitCode exitCode, const platform::LocalizedError& error, const std::string& next)
{
    const auto [message, rest] = sentenceAndRest(error.errorDescription());
    // A server may say more than a terminal should show.
    constexpr std::size_t longest = 500;
    return {exitCode, error.what(), platform::abbreviated(message, longest),
            platform::abbreviated(next.empty() ? rest : next, longest)};
}

std::string connectionAdvice()
{
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        if (const char* proxy = std::getenv(name); proxy != nullptr && *proxy != '\0')
            return "Check that the server runs and that the network is connected; unless the "
                   "server is on this machine, also the proxy that " +
                   std::string(name) + " names.";
    return "Check that the server runs and that the network is connected.";
}

Report unexpected(const std::exception& error)
{
    return {ExitCode::internal, "internal",
            "Something unexpected failed: " + platform::describe(error) + ".",
            "Try again, and report it if that does not help."};
}

Report unexpected()
{
    return {ExitCode::internal, "internal", "Something unexpected failed.",
            "Try again, and report it if that does not help."};
}

Report outOfMemory()
{
    return {ExitCode::internal, "outOfMemory", "The memory of this machine is used up.",
            "Close other programs and try again."};
}

}  // namespace commandline
