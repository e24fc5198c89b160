#include "tests/soak/History.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace soak
{
namespace
{

using Value = std::optional<std::uint64_t>;

/// One way in which the calls so far may have happened: which of the open ones have taken effect,
/// one bit for each process, and what is stored since.
struct Course
{
    std::uint64_t happened = 0;
    Value stored = {};

    auto operator<=>(const Course&) const = default;
};

std::optional<Value> after(const Event& event, const Value& stored)
{
    const bool possible = event.needs == Event::Needs::anything ||
                          (event.needs == Event::Needs::absent && !stored) ||
                          (event.needs == Event::Needs::present && stored) ||
                          (event.needs == Event::Needs::exactly && stored == event.value);
    if (!possible)
        return std::nullopt;
    if (event.leaves == Event::Leaves::same)
        return stored;
    return event.leaves == Event::Leaves::value ? Value(event.value) : Value();
}

class Courses
{
public:
    void begin(const Event& event) { open_[event.process] = &event; }

    /// The event has ended, so in every course it must have happened by now, after any of the open
    /// ones. False when that leaves no course.
    bool end(const Event& event)
    {
        const auto bit = std::uint64_t(1) << event.process;
        std::set<Course> reached;
        std::vector<Course> waiting(courses_.begin(), courses_.end());
        std::set<Course> seen = courses_;
        while (!waiting.empty())
        {
            const auto course = waiting.back();
            waiting.pop_back();
            if (course.happened & bit)
            {
                reached.insert({.happened = course.happened & ~bit, .stored = course.stored});
                continue;
            }
            for (const auto& [process, other] : open_)
            {
                const auto its = std::uint64_t(1) << process;
                const auto stored = after(*other, course.stored);
                const Course next{course.happened | its, stored.value_or(std::nullopt)};
                if ((course.happened & its) == 0 && stored && seen.insert(next).second)
                    waiting.push_back(next);
            }
        }
        courses_ = std::move(reached);
        open_.erase(event.process);
        return !courses_.empty();
    }

private:
    std::set<Course> courses_{Course()};
    std::map<std::uint8_t, const Event*> open_;
};

struct Edge
{
    std::int64_t at;
    bool isEnd;
    std::size_t event;

    /// At one instant, starts come first: calls that touch count as simultaneous.
    auto operator<=>(const Edge&) const = default;
};

}  // namespace

std::optional<std::size_t> firstUnexplained(const std::vector<Event>& events)
{
    std::vector<Edge> edges;
    edges.reserve(events.size() * 2);
    for (std::size_t index = 0; index < events.size(); ++index)
    {
        edges.push_back({events[index].start, false, index});
        edges.push_back({events[index].end, true, index});
    }
    std::ranges::sort(edges);

    Courses courses;
    for (const auto& edge : edges)
    {
        if (!edge.isEnd)
            courses.begin(events[edge.event]);
        else if (!courses.end(events[edge.event]))
            return edge.event;
    }
    return std::nullopt;
}

}  // namespace soak
