#include "benchmarks/PairedBlocks.hpp"

#include <algorithm>
#include <ctime>

namespace
{

using Samples = std::vector<double>;

double seconds(clockid_t clock)
{
    timespec spent{};
    clock_gettime(clock, &spent);
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) * 1e-9;
}

double secondsFor(const Way& way, clockid_t clock)
{
    if (way.prepare)
        way.prepare(way.count);
    const double before = seconds(clock);
    way.run(way.count);
    return (seconds(clock) - before) / static_cast<double>(way.count);
}

double quantile(Samples samples, double part)
{
    const auto place = static_cast<std::size_t>(part * static_cast<double>(samples.size() - 1));
    const auto found = samples.begin() + static_cast<std::ptrdiff_t>(place);
    std::ranges::nth_element(samples, found);
    return *found;
}

Samples ratios(const Samples& these, const Samples& those)
{
    Samples result(these.size());
    std::ranges::transform(these, those, result.begin(), std::divides<>());
    return result;
}

}  // namespace

void compareInBlocks(benchmark::State& state, const Comparison& comparison)
{
    std::vector<const Way*> ways{&comparison.measured, &comparison.limit};
    for (const Way& way : comparison.beside)
        ways.push_back(&way);
    const auto clock = comparison.waits ? CLOCK_MONOTONIC : CLOCK_PROCESS_CPUTIME_ID;
    for (const Way* way : ways)
        secondsFor(*way, clock);
    std::vector<Samples> spent(ways.size());
    std::size_t round = 0;
    for ([[maybe_unused]] const auto iteration : state)
    {
        for (std::size_t turn = 0; turn < ways.size(); ++turn)
        {
            const std::size_t index = (round + turn) % ways.size();
            spent[index].push_back(secondsFor(*ways[index], clock));
        }
        ++round;
        state.SetIterationTime(spent[0].back());
    }

    const Samples toLimit = ratios(spent[0], spent[1]);
    state.counters["ratio"] = comparison.waits ? quantile(spent[0], 0.5) / quantile(spent[1], 0.5)
                                               : quantile(toLimit, 0.5);
    state.counters["low"] = quantile(toLimit, 0.25);
    state.counters["high"] = quantile(toLimit, 0.75);
    state.counters["goal"] = comparison.goal;
    for (std::size_t index = 0; index < ways.size(); ++index)
    {
        state.counters["us " + ways[index]->name] = quantile(spent[index], 0.5) * 1e6;
        if (comparison.waits)
            state.counters["p99 us " + ways[index]->name] = quantile(spent[index], 0.99) * 1e6;
    }
    for (std::size_t index = 2; index < ways.size(); ++index)
        state.counters["beside " + ways[index]->name] =
            quantile(ratios(spent[index], spent[1]), 0.5);
}
