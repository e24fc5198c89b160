#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace fetch
{

/// How far an attempt has come: body bytes of both directions, as `platform::Progress` has them.
struct Counts
{
    /// 0: nothing is known yet. Below zero: the answer does not tell how long it is.
    std::int64_t total = 0;
    std::int64_t completed = 0;

    bool operator==(const Counts&) const = default;
};

/// "512 B", "4.2 MiB".
std::string sizeText(std::int64_t bytes);

/// "0.5", "2", without zeros that say nothing.
std::string secondsText(double seconds);

/// The whole percents that are there; 100 only of what is complete. Nothing where no total is
/// known.
std::optional<int> percentOf(const Counts& counts);

/// One line that fits into so many columns, without its end:
/// " 42 % [====>      ] 4.2 MiB of 10.0 MiB, 1.3 MiB/s". What there is no room for is left out,
/// the bar first.
std::string progressLine(const Counts& counts, std::chrono::milliseconds elapsed, int columns,
                         bool colours);

/// What is told where lines cannot be taken back: each tenth of the whole once, or, where the whole
/// is not known, each doubling from 1 MiB on.
class Milestones
{
public:
    /// What to tell of these counts, if anything.
    std::optional<std::string> next(const Counts& counts);

    /// Another attempt begins.
    void restart() { *this = Milestones(); }

private:
    std::optional<std::string> nextPercent(int percent, const Counts& counts);

    int toldPercent_ = 0;
    std::int64_t nextSize_ = std::int64_t{1} << 20;
};

}  // namespace fetch
