#include "NetTasks/ResponseCheck.hpp"
#include "Platform/Concurrency/CancellationError.hpp"
#include "Tessera/API/AccountRemoteError.hpp"
#include "Tessera/Model/AccountError.hpp"
#include "Tessera/Session/SessionCalls.hpp"

namespace tessera::detail
{
namespace
{

template <class Error>
bool matches(const std::exception_ptr& error, bool (*condition)(const Error&))
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const Error& one)
    {
        return condition(one);
    }
    catch (...)
    {
        return false;
    }
}

}  // namespace

bool isCancellation(const std::exception_ptr& error)
{
    return matches<platform::CancellationError>(error, [](const auto&) { return true; });
}

bool isRefusal(const std::exception_ptr& error)
{
    return matches<AccountRemoteError>(
        error, [](const AccountRemoteError& refusal)
        { return refusal.is(AccountRemoteError::KnownCode::unauthorized); });
}

bool isKeychainError(const std::exception_ptr& error)
{
    return matches<AccountError>(error, [](const AccountError& known)
                                 { return known.errorCase() == AccountError::keychainAccess; });
}

std::string sentenceFor(const std::exception_ptr& error)
{
    using nettasks::AsyncURLSessionDataTaskDecodingError;
    const bool isPage =
        matches<AsyncURLSessionDataTaskDecodingError>(error, [](const auto&) { return true; });
    return isPage ? errorSentence("Malformed_Token_Error") : platform::describe(error);
}

ExponentialBackoffIterator retryDelays()
{
    return Backoff::exponential(2, RetryDelay::seconds(1)).makeIterator();
}

std::function<RetryAction(std::exception_ptr)> backOffUnlessCancelled()
{
    return [delays = retryDelays()](const std::exception_ptr& error) mutable
    { return isCancellation(error) ? RetryAction::stop() : RetryAction::backoff(delays.next()); };
}

}  // namespace tessera::detail
