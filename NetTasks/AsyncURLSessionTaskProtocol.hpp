#pragma once

#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Concurrency/Awaitable.hpp"
#include "Platform/Networking/Progress.hpp"

#include <memory>

namespace nettasks
{

/// What a transfer ended with when it did not fail.
struct DataAndResponse
{
    platform::SecretBytes body;
    platform::URLResponse response;
};

/// What all awaitable transfers have in common. Any thread may use one.
class AsyncURLSessionTaskProtocol
{
public:
    virtual ~AsyncURLSessionTaskProtocol() = default;

    virtual platform::Progress& progress() = 0;

    /// Runs the transfer and returns what came, whatever its status. Throws `platform::URLError`
    /// and, when the transfer or the awaiting caller is cancelled, `platform::CancellationError`.
    virtual platform::Awaitable<DataAndResponse> resume() = 0;
};

/// Runs the transfer and checks the response, see `check`. The body is otherwise ignored.
template <class Error>
platform::Awaitable<void> checkResponse(std::shared_ptr<AsyncURLSessionTaskProtocol> task)
{
    const auto answer = co_await task->resume();
    check<Error>(answer.body, answer.response);
}

/// Runs the transfer, checks the response and decodes the body. A body that is no `Value` is the
/// decoder's `platform::DecodingError`.
template <class Value, class Error>
platform::Awaitable<Value> decodeData(std::shared_ptr<AsyncURLSessionTaskProtocol> task)
{
    const auto answer = co_await task->resume();
    check<Error>(answer.body, answer.response);
    co_return sharedResponseDecoder().decode<Value>(answer.body.view());
}

}  // namespace nettasks
