#include "tests/simulation/Network.hpp"

#include <array>
#include <cstdlib>
#include <utility>

namespace simulation
{
namespace
{

struct Route
{
    std::string_view method;
    std::string_view path;
    Operation operation;
};

constexpr Route routes[]{
    {"POST", "/v2/auth/one-time-code", Operation::oneTimeCode},
    {"POST", "/v2/auth", Operation::signIn},
    {"DELETE", "/v2/auth", Operation::signOut},
    {"GET", "/v2/account", Operation::info},
    {"DELETE", "/v2/account", Operation::deleteAccount},
    {"POST", "/v2/account/newsletter", Operation::newsletter},
    {"POST", "/v2/legal/terms/consent", Operation::consent},
};

int numberAfter(std::string_view text, std::string_view mark)
{
    const auto place = text.find(mark);
    return place == text.npos ? -1 : std::atoi(text.data() + place + mark.size());
}

Request read(int host, const platform::URLRequest& request)
{
    Request made{.host = host};
    for (const auto& route : routes)
        if (request.method == route.method && request.url.string().ends_with(route.path))
            made.operation = route.operation;
    if (const auto* header = request.header("Authorization"))
    {
        constexpr std::string_view scheme = "Bearer ";
        made.bearer = Texts::shared().find(header->value.view().substr(scheme.size()));
        made.isBearerUnknown = made.bearer == nullptr;
    }
    if (made.operation == Operation::signIn && request.body)
    {
        const auto bytes = request.body->view();
        const std::string body(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        made.user = numberAfter(body, "user-");
        made.call = numberAfter(body, "code-");
    }
    return made;
}

class HostSession final : public platform::URLSession
{
public:
    HostSession(Network& network, int host) : network_(network), host_(host) {}

    std::shared_ptr<platform::URLSessionTask> dataTask(platform::URLRequest request,
                                                       Completion completion) override
    {
        auto made =
            std::make_shared<Transfer>(network_, host_, std::move(request), std::move(completion));
        made->self = made;
        return made;
    }

    /// The session uploads nothing.
    std::shared_ptr<platform::URLSessionTask> uploadTask(platform::URLRequest,
                                                         std::filesystem::path, Completion) override
    {
        std::abort();
    }

private:
    Network& network_;
    const int host_;
};

}  // namespace

std::string_view nameOf(Operation operation)
{
    constexpr std::array names{"one-time code", "sign-in",    "info",    "sign-out",
                               "deletion",      "newsletter", "consent", "unknown"};
    return names.at(static_cast<std::size_t>(operation));
}

std::string Request::description() const
{
    auto text = "host " + std::to_string(host) + " " + std::string(nameOf(operation));
    if (call >= 0)
        text += " of call " + std::to_string(call);
    if (bearer)
        text += " with " + bearer->name;
    return text;
}

Transfer::Transfer(Network& network, int host, platform::URLRequest request,
                   platform::URLSession::Completion completion)
    : network_(network),
      request_(std::move(request)),
      read_(read(host, request_)),
      completion_(std::move(completion))
{}

void Transfer::answer(int status, std::string_view body)
{
    end({platform::SecretBytes(std::as_bytes(std::span(body))),
         platform::URLResponse{request_.url, status, {}}, nullptr});
}

void Transfer::resume()
{
    if (std::exchange(started_, true))
        return;
    const auto held = self.lock();
    network_.open_.push_back(held);
    // One that was cancelled before is never sent.
    if (!cancelled_)
        network_.onRequest_(read_);
}

void Transfer::end(platform::URLCompletion completion)
{
    const auto held = self.lock();
    std::erase(network_.open_, held);
    if (const auto once = std::exchange(completion_, nullptr))
        once(std::move(completion));
}

std::shared_ptr<platform::URLSession> Network::sessionOf(int host)
{
    return std::make_shared<HostSession>(*this, host);
}

}  // namespace simulation
