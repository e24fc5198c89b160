#pragma once

#include "tests/soak/Place.hpp"

#include <cstdint>

namespace soak
{

struct Settings
{
    /// 0 stands for the run's own number.
    std::uint64_t count = 0;
    std::uint64_t seed = 0;
    unsigned processes = 8;
};

// Each prints its counts and returns the program's exit code.
int runKills(const Settings& settings);
int runPowerCut(const Settings& settings);
int runFaults(const Settings& settings);
int runFlips(const Settings& settings);
int runProcesses(const Settings& settings);
int runServiceKills(const Settings& settings);
int runServiceProcesses(const Settings& settings);

// The processes that the runs start.
/// `isQuiet`: a step that fails is no surprise.
int beWriter(const Place& place, std::uint64_t seed, std::uint64_t firstNumber, bool isQuiet);
int beHolder(const Place& place);
int beFlipper(const Place& place);
int beContender(const Place& place, std::uint64_t seed, unsigned process, std::uint64_t count);

}  // namespace soak
