#pragma once

#include <cstdint>
#include <random>

namespace soak
{

/// Numbers that a seed repeats on every machine; the distributions of the library do not.
class Random
{
public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}

    std::uint64_t any() { return engine_(); }

    /// 0 up to, not including, `end`, which is not 0.
    std::uint64_t below(std::uint64_t end) { return engine_() % end; }

    bool oneIn(std::uint64_t chances) { return below(chances) == 0; }

private:
    std::mt19937_64 engine_;
};

}  // namespace soak
