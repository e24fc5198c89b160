#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

namespace platform
{

/// Where work runs, one piece at a time: a run loop, an actor, a worker thread. Of a pool of
/// threads, take a strand: work that is cancelled while it runs elsewhere is not safe in Asio.
using Executor = boost::asio::any_io_executor;

/// Lazy work: nothing happens until it is awaited, or started with `Task` or `start`.
///
/// It is Boost.Asio's awaitable, so it composes with a host's own Asio coroutines. Cancellation
/// reaches it from whoever started it; work that was started by `Task` or `start` sees it as
/// `CancellationError`, at the points where the work looks for it.
template <class T>
using Awaitable = boost::asio::awaitable<T, Executor>;

/// Throws `CancellationError` when the calling work has been cancelled.
Awaitable<void> checkCancellation();

}  // namespace platform
