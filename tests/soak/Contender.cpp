#include "tests/soak/History.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/soak/Items.hpp"
#include "tests/soak/Random.hpp"

#include <time.h>
#include <unistd.h>
#include <iostream>

namespace soak
{

using platform::KeychainStatus;

namespace
{

// Few, so that processes meet.
constexpr std::size_t contendedKeys = 3;

/// The one clock that all processes share.
std::int64_t now()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

/// Calls the store and notes what each answer says about what was stored.
class Contender
{
public:
    Contender(const Place& place, std::uint64_t seed, unsigned process)
        : store_(openStore(place)), items_(store_->items()), random_(seed), process_(process)
    {}

    std::vector<Event> call(std::uint64_t step)
    {
        const auto key = static_cast<std::uint32_t>(random_.below(contendedKeys));
        // Unique among all writes, so that a value tells where it came from.
        const auto number = (std::uint64_t(process_) << 40) + step + 1;
        Event event{.start = now(), .key = key, .process = static_cast<std::uint8_t>(process_)};
        event.value = number;
        std::vector<Event> events;
        const auto chance = random_.below(100);
        if (chance < 30)
            events = {put(event)};
        else if (chance < 70)
            events = {get(event)};
        else if (chance < 82)
            events = {remove(event)};
        else if (chance < 92)
            events = {add(event)};
        else
            events = list(event);
        const auto end = now();
        for (auto& one : events)
            one.end = end;
        return events;
    }

    std::string diagnostics() const { return store_->diagnostics(); }

private:
    Event put(Event event)
    {
        event.status = static_cast<std::int32_t>(items_.put(keyAt(event.key), event.value));
        event.leaves = Event::Leaves::value;
        return event;
    }

    Event add(Event event)
    {
        const auto status = items_.add(keyAt(event.key), event.value);
        if (status == KeychainStatus::duplicateItem)
        {
            event.needs = Event::Needs::present;
            return event;
        }
        event.status = static_cast<std::int32_t>(status);
        event.needs = Event::Needs::absent;
        event.leaves = Event::Leaves::value;
        return event;
    }

    Event remove(Event event)
    {
        const auto status = items_.remove(keyAt(event.key));
        event.leaves = Event::Leaves::absent;
        event.needs =
            status == KeychainStatus::itemNotFound ? Event::Needs::absent : Event::Needs::present;
        if (status != KeychainStatus::itemNotFound)
            event.status = static_cast<std::int32_t>(status);
        return event;
    }

    Event get(Event event)
    {
        const auto found = items_.get(keyAt(event.key));
        const bool there = found.status == KeychainStatus::success;
        event.needs = there ? Event::Needs::exactly : Event::Needs::absent;
        // A damaged value is one that nobody wrote.
        event.value = found.number.value_or(0);
        if (!there && found.status != KeychainStatus::itemNotFound)
            event.status = static_cast<std::int32_t>(found.status);
        return event;
    }

    std::vector<Event> list(const Event& event)
    {
        const auto listing = items_.all();
        std::vector<Event> events;
        for (std::uint32_t key = 0; key < contendedKeys; ++key)
        {
            auto one = event;
            one.key = key;
            one.status = static_cast<std::int32_t>(listing.status);
            const auto entry = listing.numbers.find(keyAt(key));
            const bool there = entry != listing.numbers.end();
            one.needs = there ? Event::Needs::exactly : Event::Needs::absent;
            one.value = !listing.fault.empty() ? 0 : there ? entry->second : 0;
            if (!listing.fault.empty())
                one.needs = Event::Needs::exactly;
            events.push_back(one);
        }
        return events;
    }

    std::unique_ptr<Store> store_;
    Items items_;
    Random random_;
    const unsigned process_;
};

}  // namespace

/// Works on the items that the other contenders work on too, and writes its events to its output.
int beContender(const Place& place, std::uint64_t seed, unsigned process, std::uint64_t count)
{
    Contender contender(place, seed, process);
    for (std::uint64_t step = 0; step < count; ++step)
        for (const auto& event : contender.call(step))
        {
            if (event.status != 0 && !contender.diagnostics().empty())
                std::cerr << "process " << process << ": " << contender.diagnostics() << std::endl;
            if (write(STDOUT_FILENO, &event, sizeof event) != sizeof event)
                return 4;
        }
    return 0;
}

}  // namespace soak
