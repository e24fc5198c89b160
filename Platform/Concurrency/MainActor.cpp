#include "Platform/Concurrency/MainActor.hpp"

#include <boost/asio/execution.hpp>
#include <boost/asio/execution_context.hpp>

#include <algorithm>
#include <utility>

namespace platform
{
namespace
{

namespace execution = boost::asio::execution;

/// What Asio asks of an executor, answered by a `MainActor`. It does not own the actor: work that
/// waits in the actor's own queue holds its executor, and would keep both for ever.
class MainActorExecutor
{
public:
    explicit MainActorExecutor(const std::shared_ptr<MainActor>& actor)
        : actor_(actor), identity_(actor.get())
    {}

    boost::asio::execution_context& query(execution::context_t) const noexcept
    {
        // Asio keeps services of its own in a context; one that is never torn down serves all.
        static auto& context = *new boost::asio::execution_context;
        return context;
    }

    execution::blocking_t query(execution::blocking_t) const noexcept
    {
        return mayRunInline_ ? execution::blocking_t(execution::blocking.possibly)
                             : execution::blocking_t(execution::blocking.never);
    }

    MainActorExecutor require(execution::blocking_t::possibly_t) const { return withInline(true); }
    MainActorExecutor require(execution::blocking_t::never_t) const { return withInline(false); }

    template <class Function>
    void execute(Function function) const
    {
        const auto actor = actor_.lock();
        if (!actor)
            return;
        if (mayRunInline_ && actor->isCurrent())
        {
            function();
            return;
        }
        auto shared = std::make_shared<Function>(std::move(function));
        std::function<void()> work = [shared] { (*shared)(); };
        if (!MainActorBatch::keep(actor, work))
            actor->enqueue(std::move(work));
    }

    bool operator==(const MainActorExecutor& other) const noexcept
    {
        return identity_ == other.identity_ && mayRunInline_ == other.mayRunInline_;
    }

private:
    MainActorExecutor withInline(bool mayRunInline) const
    {
        auto copy = *this;
        copy.mayRunInline_ = mayRunInline;
        return copy;
    }

    std::weak_ptr<MainActor> actor_;
    const MainActor* identity_;
    bool mayRunInline_ = true;
};

}  // namespace

void MainActor::enqueueAll(std::vector<std::function<void()>> work)
{
    for (auto& piece : work)
        enqueue(std::move(piece));
}

Executor executorOf(const std::shared_ptr<MainActor>& actor)
{
    return MainActorExecutor(actor);
}

namespace
{

thread_local MainActorBatch* currentBatch = nullptr;

}  // namespace

MainActorBatch::MainActorBatch() noexcept : outer_(std::exchange(currentBatch, this)) {}

MainActorBatch::~MainActorBatch()
{
    currentBatch = outer_;
    for (auto& [actor, work] : shares_)
        actor->enqueueAll(std::move(work));
}

bool MainActorBatch::keep(const std::shared_ptr<MainActor>& actor, std::function<void()>& work)
{
    if (!currentBatch)
        return false;
    auto& shares = currentBatch->shares_;
    const auto found = std::ranges::find(shares, actor, &Share::actor);
    Share& share = found == shares.end() ? shares.emplace_back(Share{actor, {}}) : *found;
    share.work.push_back(std::move(work));
    return true;
}

}  // namespace platform
