#include "Platform/Networking/Progress.hpp"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace platform
{

/// Recursive, so that an observer may drop its own subscription or add another one.
struct Progress::Observers
{
    using Counts = std::pair<std::int64_t, std::int64_t>;

    struct Entry
    {
        std::uint64_t id;
        Observer observer;
        std::optional<Counts> told;
    };

    std::recursive_mutex mutex;
    std::vector<std::shared_ptr<Entry>> entries;
    std::uint64_t lastId = 0;

    bool holds(const std::shared_ptr<Entry>& entry) const
    {
        return std::ranges::find(entries, entry) != entries.end();
    }

    void tell(Counts counts)
    {
        const auto current = entries;
        for (const auto& entry : current)
        {
            if (!holds(entry) || entry->told == counts)
                continue;
            entry->told = counts;
            entry->observer(counts.first, counts.second);
        }
    }
};

Progress::~Progress() = default;

/// The completed count first: a total that is newer than it is never smaller.
std::pair<std::int64_t, std::int64_t> Progress::counts() const
{
    const std::int64_t completed = completed_;
    return {total_, completed};
}

Progress::Subscription Progress::observe(Observer observer)
{
    std::call_once(firstObserver_, [this] { observers_ = std::make_shared<Observers>(); });
    const std::lock_guard lock(observers_->mutex);
    const std::uint64_t id = ++observers_->lastId;
    observers_->entries.push_back(
        std::make_shared<Observers::Entry>(id, std::move(observer), std::nullopt));

    // Announced before the counts are read: an update that is missed here sees the announcement.
    observed_ = true;
    observers_->tell(counts());
    return Subscription(observers_, id);
}

void Progress::update(std::int64_t total, std::int64_t completed)
{
    // The store that is ordered before the look at `observed_` publishes both.
    total_.store(total, std::memory_order_relaxed);
    completed_ = completed;
    if (!observed_)
        return;
    const std::lock_guard lock(observers_->mutex);
    observers_->tell(counts());
}

Progress::Subscription::Subscription(std::weak_ptr<Observers> observers, std::uint64_t id) noexcept
    : observers_(std::move(observers)), id_(id)
{}

Progress::Subscription& Progress::Subscription::operator=(Subscription&& other) noexcept
{
    if (this != &other)
    {
        drop();
        observers_ = std::move(other.observers_);
        id_ = other.id_;
    }
    return *this;
}

Progress::Subscription::~Subscription()
{
    drop();
}

void Progress::Subscription::drop() noexcept
{
    if (const auto observers = observers_.lock())
    {
        const std::lock_guard lock(observers->mutex);
        std::erase_if(observers->entries, [this](const auto& entry) { return entry->id == id_; });
    }
    observers_.reset();
}

}  // namespace platform
