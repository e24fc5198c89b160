#include "Platform/Concurrency/Awaitable.hpp"
#include "Platform/Concurrency/CancellationError.hpp"

#include <boost/asio/this_coro.hpp>

namespace platform
{

Awaitable<void> checkCancellation()
{
    const auto state = co_await boost::asio::this_coro::cancellation_state;
    if (state.cancelled() != boost::asio::cancellation_type::none)
        throw CancellationError();
}

}  // namespace platform
