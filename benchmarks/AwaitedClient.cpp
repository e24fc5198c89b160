#include "benchmarks/AwaitedClient.hpp"

#include "benchmarks/Server.hpp"

#include "NetTasks/SessionExtension.hpp"

#include <stdexcept>

namespace
{

struct Work
{
    std::shared_ptr<platform::URLSession> session;
    platform::URLRequest request;
    std::size_t toStart;
    std::size_t running;
};

platform::Awaitable<void> requestWhileThereIsWork(std::shared_ptr<Work> work)
{
    while (work->toStart > 0)
    {
        --work->toStart;
        auto task = nettasks::asyncDataTask(work->session, work->request);
        const auto answer = co_await task->resume();
        if (answer.response.status != 200 || answer.body.size() != Server::bodySize)
            throw std::runtime_error("The awaited request got another answer");
    }
}

platform::URLRequest requestTo(const std::string& address)
{
    platform::URLRequest request{
        .url = platform::URL::parse(address).value(), .headers = {}, .body = {}};
    for (const auto& [name, value] : requestHeaders())
        request.setHeader(name, value);
    return request;
}

}  // namespace

AwaitedClient::AwaitedClient(const std::string& address, std::size_t inFlight)
    : inFlight_(inFlight), request_(requestTo(address))
{
    platform::CurlURLSession::Configuration configuration;
    configuration.trustedAuthority = server().authority;
    session_ = std::make_shared<platform::CurlURLSession>(std::move(configuration));
}

void AwaitedClient::run(std::size_t count)
{
    const auto work = std::make_shared<Work>(Work{session_, request_, count, inFlight_});
    const auto executor = platform::executorOf(loop_);
    const auto end = [work](platform::Outcome<void> outcome)
    {
        std::move(outcome).get();
        --work->running;
    };
    for (std::size_t i = 0; i < inFlight_; ++i)
        platform::start<void>(executor, requestWhileThereIsWork(work), end);
    loop_->runUntil([&work] { return work->running == 0; });
}
