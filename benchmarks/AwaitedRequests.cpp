#include "benchmarks/AwaitedClient.hpp"
#include "benchmarks/PairedBlocks.hpp"
#include "benchmarks/RawMulti.hpp"
#include "benchmarks/RawWorker.hpp"
#include "benchmarks/Server.hpp"

namespace
{

void requests32(benchmark::State& state)
{
    if (server().origin.empty())
        return state.SkipWithError("no server");
    constexpr std::size_t inFlight = 32;
    constexpr std::size_t count = 1600;
    AwaitedClient awaited(server().keptAlive(), inFlight);
    RawMulti raw(server().keptAlive(), inFlight, RawWaiting::poll);
    RawMulti rawOnEvents(server().keptAlive(), inFlight, RawWaiting::events);

    compareInBlocks(
        state,
        {.goal = 1.03,
         .measured = {"awaited", count, [&](std::size_t n) { awaited.run(n); }},
         .limit = {"raw multi, poll", count, [&](std::size_t n) { raw.run(n); }},
         .beside = {{"raw multi, epoll", count, [&](std::size_t n) { rawOnEvents.run(n); }}}});
}

void requests1(benchmark::State& state)
{
    if (server().origin.empty())
        return state.SkipWithError("no server");
    constexpr std::size_t count = 400;
    AwaitedClient awaited(server().keptAlive(), 1);
    RawWorker raw(server().keptAlive());

    compareInBlocks(
        state, {.goal = 1.05,
                .measured = {"awaited", count, [&](std::size_t n) { awaited.run(n); }},
                .limit = {"raw multi on a thread", count, [&](std::size_t n) { raw.run(n); }}});
}

BENCHMARK(requests32)
    ->Name("requests-32")
    ->Iterations(60)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

BENCHMARK(requests1)
    ->Name("requests-1")
    ->Iterations(100)
    ->UseManualTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace
