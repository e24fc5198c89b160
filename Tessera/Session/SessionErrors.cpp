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

}  // namespace tessera::detail
