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
    Value stored;

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
    switch (event.leaves)
    {
        case Event::Leaves::absent:
            return Value();
        case Event::Leaves::value:
            return Value(event.value);
        case Event::Leaves::same:
            break;
    }
    return stored;
}

class Courses
{
public:
    explicit Courses(Value first) : courses_{{.happened = 0, .stored = first}} {}

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
            for (const auto& next : followers(course))
                if (seen.insert(next).second)
                    waiting.push_back(next);
        }
        courses_ = std::move(reached);
        open_.erase(event.process);
        return !courses_.empty();
    }

private:
    std::vector<Course> followers(const Course& course) const
    {
        std::vector<Course> next;
        for (const auto& [process, event] : open_)
        {
            const auto bit = std::uint64_t(1) << process;
            if (course.happened & bit)
                continue;
            if (const auto stored = after(*event, course.stored))
                next.push_back({.happened = course.happened | bit, .stored = *stored});
        }
        return next;
    }

    std::set<Course> courses_;
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

std::optional<std::size_t> firstUnexplained(const std::vector<Event>& events,
                                            std::optional<std::uint64_t> first)
{
    std::vector<Edge> edges;
    edges.reserve(events.size() * 2);
    for (std::size_t index = 0; index < events.size(); ++index)
    {
        edges.push_back({events[index].start, false, index});
        edges.push_back({events[index].end, true, index});
    }
    std::ranges::sort(edges);

    Courses courses(first);
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
