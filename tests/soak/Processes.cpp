#include "tests/soak/Child.hpp"
#include "tests/soak/History.hpp"
#include "tests/soak/Random.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/SecretServiceForTest.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <list>
#include <map>

namespace soak
{
namespace
{

using platform::KeychainStatus;
using Needs = Event::Needs;
using Leaves = Event::Leaves;

// Few, so that processes meet.
constexpr std::size_t contendedKeys = 3;

/// The one clock that all processes share.
std::int64_t now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Reads what all of them write until all have ended.
std::vector<Event> collect(const std::list<Child>& children)
{
    std::vector<Event> events;
    std::vector<pollfd> open;
    for (const auto& child : children)
        open.push_back({.fd = child.channel(), .events = POLLIN, .revents = 0});
    while (!open.empty())
    {
        poll(open.data(), open.size(), -1);
        std::erase_if(open,
                      [&](const pollfd& one)
                      {
                          if (one.revents == 0)
                              return false;
                          const auto event = hear<Event>(one.fd);
                          if (event)
                              events.push_back(*event);
                          return !event;
                      });
    }
    return events;
}

std::string shown(const Event& event)
{
    static constexpr const char* needs[]{"anything", "nothing", "something", "write "};
    static constexpr const char* leaves[]{"it", "nothing", "write "};
    const auto number = std::to_string(event.value);
    return "process " + std::to_string(event.process) + ", " + std::to_string(event.start) +
           " to " + std::to_string(event.end) + " ns: finds " +
           needs[static_cast<std::size_t>(event.needs)] +
           (event.needs == Needs::exactly ? number : "") + ", leaves " +
           leaves[static_cast<std::size_t>(event.leaves)] +
           (event.leaves == Leaves::value ? number : "");
}

/// What happened on the key around the call, for the one who must find out why.
std::string around(const std::vector<Event>& events, const Event& call)
{
    std::string text;
    for (const auto& event : events)
        if (event.end + 3'000'000 >= call.start && event.start <= call.end)
            text += "\n    " + shown(event);
    return text;
}

void judge(const std::vector<Event>& events, Report& report)
{
    std::map<std::uint32_t, std::vector<Event>> byKey;
    for (const auto& event : events)
        if (event.status == 0)
            byKey[event.key].push_back(event);
        else
            report.failed("process " + std::to_string(event.process) + " on " +
                          soak::shown(keyAt(event.key)) + ": status " +
                          std::to_string(event.status));
    for (const auto& [key, calls] : byKey)
        if (const auto unexplained = firstUnexplained(calls))
            report.failed("no order of the calls on " + soak::shown(keyAt(key)) +
                          " explains: " + shown(calls[*unexplained]) +
                          "; around it:" + around(calls, calls[*unexplained]));
        else
            report.passed(calls.size());
}

/// Makes one read return what had certainly been overwritten before it began.
bool makeStale(std::vector<Event>& calls)
{
    const auto find = [&](const auto& matches)
    {
        return std::ranges::find_if(calls, [&](const Event& call)
                                    { return call.leaves == Leaves::value && matches(call); });
    };
    for (auto& read : calls)
    {
        if (read.needs != Needs::exactly)
            continue;
        const auto writer = find([&](const Event& call)
                                 { return call.value == read.value && call.end < read.start; });
        if (writer == calls.end())
            continue;
        const auto older = find([&](const Event& call) { return call.end < writer->start; });
        if (older == calls.end())
            continue;
        read.value = older->value;
        return true;
    }
    return false;
}

/// A judge that takes everything would prove nothing.
void proveJudge(std::vector<Event> events, Report& report)
{
    std::erase_if(events, [](const Event& event) { return event.key != 0 || event.status != 0; });
    if (makeStale(events) && firstUnexplained(events))
        report.passed();
    else
        report.failed("a read of an overwritten value was not noticed");
}

/// Several processes write, read and delete the same few items. Every answer must be explained by
/// some order of the calls, and none may be an error. Returns a line about the run.
std::string contend(const Place& place, const Settings& settings, std::uint64_t count,
                    Report& report)
{
    Random random(settings.seed);
    std::list<Child> children;
    for (unsigned process = 0; process < settings.processes; ++process)
        children.emplace_back(place.command(
            "contender", {"--seed", std::to_string(random.any()), "--process",
                          std::to_string(process), "--count", std::to_string(count)}));
    const auto events = collect(children);
    for (auto& child : children)
        if (const auto end = child.wait(); end != 0)
            report.failed("a process ended with " + shownEnd(end));
    judge(events, report);
    proveJudge(events, report);

    // Pauses say how well the store shares; they are shown, the holder's round judges them.
    std::int64_t longest = 0;
    for (const auto& event : events)
        longest = std::max(longest, event.end - event.start);
    return std::to_string(settings.processes) + " processes with " + std::to_string(count) +
           " calls each; the longest call took " + std::to_string(longest / 1'000'000) + " ms";
}

/// Lists all items: an answer for each key.
std::vector<Event> list(const Event& call, Store& store)
{
    const auto listing = store.all();
    std::vector<Event> events;
    for (std::uint32_t key = 0; key < contendedKeys; ++key)
    {
        auto& event = events.emplace_back(call);
        const auto entry = listing.numbers.find(keyAt(key));
        const bool isThere = entry != listing.numbers.end();
        event.key = key;
        event.status = static_cast<std::int32_t>(listing.status);
        // A damaged value is one that nobody wrote.
        const bool isDamaged = !listing.fault.empty();
        event.needs = isThere || isDamaged ? Needs::exactly : Needs::absent;
        event.value = isThere && !isDamaged ? entry->second : 0;
    }
    return events;
}

/// Makes any call on the store and notes what the answer says about what was stored.
std::vector<Event> makeCall(Store& store, Random& random, Event event)
{
    const auto& key = keyAt(event.key);
    const auto chance = random.below(100);
    auto status = KeychainStatus::success;
    // What is no error, beside success.
    auto other = KeychainStatus::itemNotFound;
    if (chance < 30)
    {
        status = store.put(key, event.value);
        other = KeychainStatus::success;
        event.leaves = Leaves::value;
    }
    else if (chance < 70)
    {
        const auto found = store.get(key);
        status = found.status;
        event.needs = status == other ? Needs::absent : Needs::exactly;
        event.value = found.number.value_or(0);
    }
    else if (chance < 82)
    {
        status = store.remove(key);
        event.needs = status == other ? Needs::absent : Needs::present;
        event.leaves = Leaves::absent;
    }
    else if (chance < 92)
    {
        status = store.add(key, event.value);
        other = KeychainStatus::duplicateItem;
        event.needs = status == other ? Needs::present : Needs::absent;
        event.leaves = status == other ? Leaves::same : Leaves::value;
    }
    else
        return list(event, store);
    event.status = status == other ? 0 : static_cast<std::int32_t>(status);
    return {event};
}

}  // namespace

int runProcesses(const Settings& settings)
{
    Report report("processes", 0, settings.seed);
    const TemporaryFolder folder;
    const Place place{.folder = folder.path() / "store"};
    const auto detail = contend(place, settings, settings.countOr(10'000), report);
    meetStoppedHolder(place, report);
    return report.close(detail);
}

int runServiceProcesses(const Settings& settings)
{
    Report report("service-processes", 0, settings.seed);
    const PrivateSecretService service;
    const Place place{.folder = service.lockFolder(), .busAddress = service.busAddress()};
    return report.close(contend(place, settings, settings.countOr(1000), report));
}

/// Works on the items that the other contenders work on too, and tells its events.
int beContender(const Settings& settings)
{
    Store store(settings.place);
    Random random(settings.seed);
    for (std::uint64_t step = 0; step < settings.count; ++step)
    {
        // The value is unique among all writes, so that it tells where it came from.
        auto events = makeCall(store, random,
                               {.start = now(),
                                .value = (std::uint64_t(settings.process) << 40) + step + 1,
                                .key = static_cast<std::uint32_t>(random.below(contendedKeys)),
                                .process = static_cast<std::uint8_t>(settings.process)});
        const auto end = now();
        for (auto& event : events)
        {
            event.end = end;
            if (event.status != 0 && !store.diagnostics().empty())
                std::cerr << "process " << settings.process << ": " << store.diagnostics()
                          << std::endl;
            if (!tell(STDOUT_FILENO, event))
                return 4;
        }
    }
    return 0;
}

}  // namespace soak
