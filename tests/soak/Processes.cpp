#include "tests/soak/Processes.hpp"

#include "tests/soak/Child.hpp"
#include "tests/soak/History.hpp"
#include "tests/soak/Holder.hpp"
#include "tests/soak/Items.hpp"
#include "tests/soak/Random.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <poll.h>
#include <unistd.h>
#include <algorithm>
#include <list>
#include <map>
#include <type_traits>

namespace soak
{
namespace
{

static_assert(std::is_trivially_copyable_v<Event>);

struct Contest
{
    std::vector<Event> events;
    /// Of the processes that did not end by themselves and well.
    std::string fault;
};

/// Reads what all of them write until all have ended.
std::vector<Event> collect(std::list<Child>& children)
{
    std::vector<Event> events;
    std::vector<pollfd> open;
    for (const auto& child : children)
        open.push_back({.fd = child.output(), .events = POLLIN, .revents = 0});
    while (!open.empty())
    {
        poll(open.data(), open.size(), -1);
        for (auto& one : open)
        {
            Event event;
            if (one.revents != 0 && read(one.fd, &event, sizeof event) != sizeof event)
                one.fd = -1;
            else if (one.revents != 0)
                events.push_back(event);
        }
        std::erase_if(open, [](const pollfd& one) { return one.fd < 0; });
    }
    return events;
}

Contest contest(const Place& place, const Settings& settings, std::uint64_t count)
{
    Random random(settings.seed);
    std::list<Child> children;
    for (unsigned process = 0; process < settings.processes; ++process)
    {
        auto arguments = place.arguments();
        arguments.insert(arguments.begin(),
                         {"contender", "--seed", std::to_string(random.any()), "--process",
                          std::to_string(process), "--count", std::to_string(count)});
        children.emplace_back(arguments);
    }
    Contest contest{.events = collect(children), .fault = {}};
    for (auto& child : children)
        if (const auto end = child.wait(); end != 0)
            contest.fault += "a process ended with " + shownEnd(end) + "; ";
    return contest;
}

std::string shown(const Event& event)
{
    static constexpr const char* needs[]{"anything", "nothing", "something", ""};
    static constexpr const char* leaves[]{"it", "nothing", ""};
    auto text = "process " + std::to_string(event.process) + ", " + std::to_string(event.start) +
                " to " + std::to_string(event.end) + " ns: finds ";
    text += event.needs == Event::Needs::exactly ? std::to_string(event.value)
                                                 : needs[static_cast<std::size_t>(event.needs)];
    text += ", leaves ";
    text += event.leaves == Event::Leaves::value ? std::to_string(event.value)
                                                 : leaves[static_cast<std::size_t>(event.leaves)];
    return text;
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
    {
        if (event.status != 0)
            report.failed("process " + std::to_string(event.process) + " on " +
                          soak::shown(keyAt(event.key)) + ": status " +
                          std::to_string(event.status));
        else
            byKey[event.key].push_back(event);
    }
    for (const auto& [key, calls] : byKey)
    {
        const auto unexplained = firstUnexplained(calls, std::nullopt);
        if (unexplained)
            report.failed("no order of the calls on " + soak::shown(keyAt(key)) +
                          " explains: " + shown(calls[*unexplained]) +
                          "; around it:" + around(calls, calls[*unexplained]));
        else
            report.passed(calls.size());
    }
}

/// Makes one read return what had certainly been overwritten before it began.
bool makeStale(std::vector<Event>& calls)
{
    const auto writes = [](const Event& call) { return call.leaves == Event::Leaves::value; };
    for (auto& read : calls)
    {
        if (read.needs != Event::Needs::exactly)
            continue;
        const auto writer = std::ranges::find_if(
            calls, [&](const Event& call)
            { return writes(call) && call.value == read.value && call.end < read.start; });
        if (writer == calls.end())
            continue;
        const auto older = std::ranges::find_if(
            calls, [&](const Event& call) { return writes(call) && call.end < writer->start; });
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
    if (makeStale(events) && firstUnexplained(events, std::nullopt))
        report.passed();
    else
        report.failed("a read of an overwritten value was not noticed");
}

}  // namespace

std::string contend(const Place& place, const Settings& settings, std::uint64_t count,
                    Report& report)
{
    const auto result = contest(place, settings, count);
    if (!result.fault.empty())
        report.failed(result.fault);
    judge(result.events, report);
    proveJudge(result.events, report);

    // Pauses say how well the store shares; they are shown, the holder's round below judges them.
    std::int64_t longest = 0;
    for (const auto& event : result.events)
        longest = std::max(longest, event.end - event.start);
    return std::to_string(settings.processes) + " processes with " + std::to_string(count) +
           " calls each; the longest call took " + std::to_string(longest / 1'000'000) + " ms";
}

int runProcesses(const Settings& settings)
{
    const auto count = settings.count ? settings.count : 10'000;
    Report report("processes", 0, settings.seed);
    const TemporaryFolder folder;
    const Place place{.folder = folder.path() / "store", .passphrase = std::nullopt};
    const auto detail = contend(place, settings, count, report);
    meetStoppedHolder(place, report);
    return report.close(detail);
}

}  // namespace soak
