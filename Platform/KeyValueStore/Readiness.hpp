#pragma once

#include "Platform/Concurrency/Awaitable.hpp"
#include "Platform/KeyValueStore/Descriptor.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>

#include <functional>
#include <memory>
#include <optional>

namespace platform
{

/// Calls `ready` on an executor whenever a descriptor can be read. It lives on that executor, held
/// by its own wait, until `end`; with an executor that has stopped it does nothing.
class Readiness : public std::enable_shared_from_this<Readiness>
{
public:
    /// Throws `boost::system::system_error` where descriptors are lacking.
    static std::shared_ptr<Readiness> begin(const Executor& executor,
                                            std::shared_ptr<Descriptor> descriptor,
                                            std::function<void()> ready);
    ~Readiness();
    Readiness(const Readiness&) = delete;
    Readiness& operator=(const Readiness&) = delete;

    /// Any thread may call it, also from within `ready`.
    void end();

private:
    Readiness(const Executor& executor, std::shared_ptr<Descriptor> descriptor,
              std::function<void()> ready);

    void wait();
    void letGo();

    const Executor executor_;
    const std::shared_ptr<Descriptor> descriptor_;
    const std::function<void()> ready_;
    /// The executor's own once it has begun.
    std::optional<boost::asio::posix::stream_descriptor> waiting_;
};

}  // namespace platform
