#include "tools/fetch/Transfer.hpp"

#include "NetTasks/SessionExtension.hpp"
#include "Platform/Networking/CurlURLSession.hpp"
#include "tools/fetch/BusyPolicy.hpp"
#include "tools/fetch/Failure.hpp"
#include "tools/fetch/ProgressDisplay.hpp"
#include "tools/shared/Running.hpp"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace fetch
{
namespace
{

std::string contentOf(const std::filesystem::path& file)
{
    errno = 0;
    std::ifstream input(file, std::ios::binary);
    if (!input.is_open())
        throw unreadable(file, std::generic_category().message(errno));
    try
    {
        return {std::istreambuf_iterator<char>(input), {}};
    }
    catch (const std::ios_base::failure&)
    {
        // A folder can be opened, but not read.
        throw unreadable(file, std::generic_category().message(errno));
    }
}

std::shared_ptr<platform::CurlURLSession> sessionFor(const Command& command)
{
    platform::CurlURLSession::Configuration configuration;
    configuration.bodyLimit = command.bodyLimit;
    if (!command.authority.empty())
        configuration.trustedAuthority = contentOf(command.authority);
    try
    {
        return std::make_shared<platform::CurlURLSession>(std::move(configuration));
    }
    catch (const std::invalid_argument&)
    {
        throw unreadable(command.authority, "it holds no certificate");
    }
}

std::shared_ptr<nettasks::AsyncURLSessionTaskProtocol> taskFor(
    const Command& command, const std::shared_ptr<platform::URLSession>& session,
    const std::shared_ptr<BusyPolicy>& policy)
{
    const auto asked = command.retries > 0 ? policy : nullptr;
    if (command.verb == Verb::get)
        return nettasks::asyncDataTask(session, command.request, asked);
    // Not to be deleted on completion: that would be so whether or not the server took it.
    return nettasks::asyncUploadTask(session, command.request, command.file, false, asked);
}

}  // namespace

Answer transfer(const Command& command, commandline::Interrupts& interrupts)
{
    const auto session = sessionFor(command);
    const auto loop = std::make_shared<platform::RunLoop>();
    ProgressDisplay display(loop, ProgressDisplay::suitable(command.json, command.quiet));
    const auto policy = std::make_shared<BusyPolicy>(
        command.baseDelay, command.retries,
        [&display](int status, double wait, int attempt) { display.wait(status, wait, attempt); });
    const auto task = taskFor(command, session, policy);
    display.follow(task);
    auto outcome =
        commandline::outcomeOf<nettasks::DataAndResponse>(loop, interrupts, task->resume());
    // Whoever still holds the session, its thread must not outlive `main`.
    session->shutdown();
    auto [body, response] = std::move(outcome).get();
    if (!nettasks::acceptedStatusCodes().contains(platform::httpStatusCode(response)))
        throw commandline::Failure(refusal(response, body));
    const auto received = static_cast<std::int64_t>(body.size());
    const auto sent = task->progress().completedUnitCount() - received;
    return {std::move(body), std::move(response), sent, policy->attempts()};
}

}  // namespace fetch
