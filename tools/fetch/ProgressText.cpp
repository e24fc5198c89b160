#include "tools/fetch/ProgressText.hpp"

#include "tools/shared/Terminal.hpp"

#include <algorithm>
#include <cstdio>

namespace fetch
{
namespace
{

using commandline::Style;

std::string speedText(const Counts& counts, std::chrono::milliseconds elapsed)
{
    constexpr std::chrono::milliseconds soonest(500);
    if (elapsed < soonest)
        return "";
    const auto perSecond =
        static_cast<double>(counts.completed) * 1000.0 / static_cast<double>(elapsed.count());
    // A count that makes no sense must still be one that can be printed.
    constexpr double most = 9e18;
    return ", " + sizeText(static_cast<std::int64_t>(std::clamp(perSecond, 0.0, most))) + "/s";
}

std::string minutesText(std::chrono::milliseconds elapsed)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
    return text;
}

/// "[===>   ]" with so many columns between the brackets.
std::string bar(const Counts& counts, std::size_t width, bool colours)
{
    const auto share = static_cast<double>(counts.completed) / static_cast<double>(counts.total);
    const auto filled =
        std::min(width, static_cast<std::size_t>(share * static_cast<double>(width)));
    std::string done(filled, '=');
    if (filled > 0 && filled < width)
        done.back() = '>';
    return "[" + commandline::styled(std::move(done), Style::good, colours) +
           std::string(width - filled, ' ') + "]";
}

std::string knownLine(const Counts& counts, int percent, const std::string& speed,
                      std::size_t columns, bool colours)
{
    char start[8];
    std::snprintf(start, sizeof start, "%3d %%", percent);
    const auto end = sizeText(counts.completed) + " of " + sizeText(counts.total) + speed;
    constexpr std::size_t narrowestBar = 10;
    constexpr std::size_t widestBar = 40;
    const std::size_t texts = std::string_view(start).size() + end.size() + 4;
    if (columns >= texts + narrowestBar)
        return std::string(start) + " " +
               bar(counts, std::min(columns - texts, widestBar), colours) + " " + end;
    if (columns >= texts)
        return std::string(start) + " " + end;
    return std::string(start).substr(0, columns);
}

}  // namespace

std::string sizeText(std::int64_t bytes)
{
    constexpr double step = 1024;
    constexpr const char* units[] = {"KiB", "MiB", "GiB", "TiB"};
    if (bytes < static_cast<std::int64_t>(step))
        return std::to_string(bytes) + " B";
    auto size = static_cast<double>(bytes) / step;
    const auto* unit = std::begin(units);
    // What would be written as 1024.0 is one of the next unit.
    constexpr double roundsUp = step - 0.05;
    for (; size >= roundsUp && unit + 1 != std::end(units); ++unit)
        size /= step;
    char text[64];
    std::snprintf(text, sizeof text, "%.1f %s", size, *unit);
    return text;
}

std::string secondsText(double seconds)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", seconds);
    return text;
}

std::optional<int> percentOf(const Counts& counts)
{
    if (counts.total <= 0)
        return std::nullopt;
    if (counts.completed >= counts.total)
        return 100;
    const auto share = static_cast<double>(counts.completed) / static_cast<double>(counts.total);
    return static_cast<int>(std::clamp(share * 100, 0.0, 99.0));
}

std::string progressLine(const Counts& counts, std::chrono::milliseconds elapsed, int columns,
                         bool colours)
{
    // The last column stays free: some terminals would begin another line.
    const auto room = static_cast<std::size_t>(std::max(columns - 1, 0));
    const auto percent = percentOf(counts);
    // Of an upload this is the time in which the server thinks.
    if (counts.completed <= 0 || percent == 100)
        return ("Waiting for the answer ... " + minutesText(elapsed)).substr(0, room);
    const auto speed = speedText(counts, elapsed);
    if (percent)
        return knownLine(counts, *percent, speed, room, colours);
    return (sizeText(counts.completed) + speed).substr(0, room);
}

std::optional<std::string> Milestones::next(const Counts& counts)
{
    if (const auto percent = percentOf(counts))
        return nextPercent(*percent, counts);
    if (counts.completed < nextSize_)
        return std::nullopt;
    while (nextSize_ <= counts.completed)
        nextSize_ *= 2;
    return sizeText(counts.completed);
}

std::optional<std::string> Milestones::nextPercent(int percent, const Counts& counts)
{
    constexpr int step = 10;
    const int reached = percent / step * step;
    if (reached <= toldPercent_)
        return std::nullopt;
    toldPercent_ = reached;
    return std::to_string(reached) + " % of " + sizeText(counts.total);
}

}  // namespace fetch
