#pragma once

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// One way of doing the thing: `run(count)` does it so many times. `prepare(count)` comes before
/// each block and is not measured.
struct Way
{
    std::string name;
    std::size_t count;
    std::function<void(std::size_t)> run;
    std::function<void(std::size_t)> prepare = {};
};

/// What is measured, the least that it could cost, and others that are shown beside them.
struct Comparison
{
    double goal;
    Way measured;
    Way limit;
    std::vector<Way> beside = {};
    /// For what waits for a disk or another process: wall time, and the ratio of the medians.
    bool waits = false;
};

/// Measures in rounds: in each, every way runs one block, in an order that turns from round to
/// round, and the round's ratio is that of its own blocks. What disturbs the machine for longer
/// than a round then falls on both sides, and the median leaves out what is shorter.
///
/// Time is the CPU time of the whole process, threads and system calls included, unless the
/// comparison says that it waits. The counters of the benchmark: `ratio` (median), `low` and `high`
/// (quartiles), `goal`, and for each way the microseconds of one execution, where it waits with
/// its 99th percentile.
void compareInBlocks(benchmark::State& state, const Comparison& comparison);
