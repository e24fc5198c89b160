#pragma once

#include "tests/soak/Report.hpp"
#include "tests/soak/Store.hpp"

namespace soak
{

/// What a run, or a process that it starts, is told on the command line.
struct Settings
{
    /// 0 stands for the run's own number.
    std::uint64_t count = 0;
    std::uint64_t seed = 0;
    unsigned processes = 8;

    // For the processes that the runs start.
    Place place = {};
    std::uint64_t first = 0;
    unsigned process = 0;
    /// A step that fails is no surprise.
    bool isQuiet = false;

    std::uint64_t countOr(std::uint64_t own) const { return count != 0 ? count : own; }
};

// Each returns the program's exit code; the runs print their counts.
int runKills(const Settings& settings);
int runPowerCut(const Settings& settings);
int runFaults(const Settings& settings);
int runFlips(const Settings& settings);
int runProcesses(const Settings& settings);
int runServiceKills(const Settings& settings);
int runServiceProcesses(const Settings& settings);

// The processes that the runs start.
int beWriter(const Settings& settings);
int beHolder(const Settings& settings);
int beFlipper(const Settings& settings);
int beContender(const Settings& settings);

/// A process is stopped, not dead, in the middle of a write: the others must not wait longer than
/// promised, and must go on when it does, or when it is killed.
void meetStoppedHolder(const Place& place, Report& report);

}  // namespace soak
