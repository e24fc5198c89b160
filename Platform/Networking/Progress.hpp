#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace platform
{

/// How far a piece of work has come, in units of its own choice. A total below zero: not known.
///
/// Every function may be called from any thread; `update` is for the one that does the work, and
/// costs next to nothing as long as nobody observes.
class Progress
{
    struct Observers;

public:
    /// Given the total and the completed count. It must not throw.
    using Observer = std::function<void(std::int64_t total, std::int64_t completed)>;

    /// Ends the observation when it is dropped; then the observer is not running any more, unless
    /// it dropped the subscription itself. It may outlive the progress.
    class [[nodiscard]] Subscription
    {
    public:
        Subscription() noexcept = default;
        Subscription(Subscription&&) noexcept = default;
        Subscription& operator=(Subscription&& other) noexcept;
        ~Subscription();

    private:
        friend class Progress;
        Subscription(std::weak_ptr<Observers> observers, std::uint64_t id) noexcept;
        void drop() noexcept;

        std::weak_ptr<Observers> observers_;
        std::uint64_t id_ = 0;
    };

    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    std::int64_t totalUnitCount() const noexcept { return total_; }
    std::int64_t completedUnitCount() const noexcept { return completed_; }

    /// Tells the counts at once, on the calling thread, and then every change, on the thread that
    /// makes it. Observers are called one at a time and must not wait for each other.
    Subscription observe(Observer observer);

    void update(std::int64_t total, std::int64_t completed);

private:
    std::pair<std::int64_t, std::int64_t> counts() const;

    std::atomic<std::int64_t> total_ = 0;
    std::atomic<std::int64_t> completed_ = 0;
    std::atomic<bool> observed_ = false;
    std::once_flag firstObserver_;
    std::shared_ptr<Observers> observers_;
};

}  // namespace platform
