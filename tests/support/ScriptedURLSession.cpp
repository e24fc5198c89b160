#include "tests/support/ScriptedURLSession.hpp"

#include "Platform/Concurrency/CancellationError.hpp"

std::shared_ptr<platform::URLSessionTask> ScriptedURLSession::dataTask(platform::URLRequest request,
                                                                       Completion completion)
{
    auto transfer = std::make_shared<Transfer>(*this, std::move(request), std::move(completion));
    transfer->self = transfer;
    return transfer;
}

std::shared_ptr<platform::URLSessionTask> ScriptedURLSession::uploadTask(
    platform::URLRequest request, std::filesystem::path file, Completion completion)
{
    auto transfer = std::make_shared<Transfer>(*this, std::move(request), std::move(completion));
    transfer->self = transfer;
    transfer->file = std::move(file);
    return transfer;
}

void ScriptedURLSession::Transfer::resume()
{
    if (cancelled_)
        return fail(std::make_exception_ptr(platform::CancellationError()));
    session_.started.push_back(self.lock());
}

void ScriptedURLSession::Transfer::cancel()
{
    cancelled_ = true;
    for (const auto& transfer : session_.started)
        if (transfer.get() == this)
            return fail(std::make_exception_ptr(platform::CancellationError()));
}

void ScriptedURLSession::Transfer::answer(std::optional<int> status, std::string_view body)
{
    end({platform::SecretBytes(std::as_bytes(std::span(body))),
         platform::URLResponse{request.url, status, {}}, nullptr});
}

void ScriptedURLSession::Transfer::end(platform::URLCompletion completion)
{
    if (auto once = std::exchange(completion_, nullptr))
        once(std::move(completion));
}
