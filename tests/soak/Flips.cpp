#include "tests/soak/Child.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Flipper.hpp"
#include "tests/soak/Report.hpp"
#include "tests/soak/Runs.hpp"
#include "tests/soak/Value.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <unistd.h>
#include <algorithm>
#include <map>
#include <stdexcept>

namespace soak
{
namespace
{

// A crash costs the rest of a batch a second start.
constexpr std::size_t batchSize = 1000;

/// Every byte of every file, with all its bits turned and with one, in a random order.
std::vector<Flip> everyFlip(const std::filesystem::path& store, Random& random)
{
    std::vector<Flip> flips;
    const auto files = filesOf(store);
    for (std::uint32_t file = 0; file < files.size(); ++file)
        for (std::uint64_t offset = 0; offset < std::filesystem::file_size(files[file]); ++offset)
        {
            const auto bit = static_cast<std::uint8_t>(1U << random.below(8));
            flips.push_back({.offset = offset, .file = file, .mask = 0xff});
            flips.push_back({.offset = offset, .file = file, .mask = bit});
        }
    for (auto at = flips.size(); at > 1; --at)
        std::swap(flips[at - 1], flips[random.below(at)]);
    return flips;
}

/// A write whose value has a length in these bounds.
std::uint64_t writeOf(const std::string& key, std::size_t least, std::size_t most)
{
    std::uint64_t number = 1;
    for (auto size = makeValue(key, number).size(); size < least || size > most;
         size = makeValue(key, number).size())
        ++number;
    return number;
}

/// Small, since every byte costs an opening, but with every kind of page in it: rows on several
/// pages and the page above those, the tail of a long value, and what was free again.
void fillStore(const Place& place)
{
    const auto store = openStore(place);
    Items items(store->items());
    const auto put = [&](std::size_t key, std::size_t least, std::size_t most)
    {
        const auto status = items.put(keyAt(key), writeOf(keyAt(key), least, most));
        if (status != platform::KeychainStatus::success)
            throw std::runtime_error("the store that is to be damaged was not filled: " +
                                     shown(status) + " " + store->diagnostics());
    };
    for (const std::size_t key : {0U, 1U, 2U, 4U})
    {
        put(key, 200, 500);
        put(key, 1'100, 1'900);
    }
    put(3, 5'000, 10'000);
    put(5, 1'000, 3'000);
    items.remove(keyAt(5));
}

class Flips
{
public:
    Flips(const Place& place, Report& report) : place_(place), report_(report) {}

    /// Hands the flips to processes of their own; one that dies is the fault of its last flip.
    void judge(const std::vector<Flip>& flips)
    {
        for (std::size_t next = 0; next < flips.size();)
        {
            const auto end = std::min(next + batchSize, flips.size());
            next += batch({flips.data() + next, end - next});
        }
    }

    std::string detail() const
    {
        std::string text;
        for (const auto& [verdict, count] : verdicts_)
            text += (text.empty() ? "" : ", ") + std::to_string(count) + " " + verdict;
        return text;
    }

private:
    /// Returns how many were judged, at least one.
    std::size_t batch(std::span<const Flip> flips)
    {
        auto arguments = place_.arguments();
        arguments.insert(arguments.begin(), "flipper");
        Child child(arguments, Child::Input::pipe);
        child.send(std::as_bytes(flips));
        std::size_t judged = 0;
        FlipVerdict verdict{};
        while (judged < flips.size() &&
               read(child.output(), &verdict, sizeof verdict) == sizeof verdict)
        {
            count(flips[judged], verdict);
            ++judged;
        }
        const auto end = child.wait();
        if (judged == flips.size() && end == 0)
            return judged;
        report_.failed("the process ended with " + shownEnd(end) + " at " + name(flips[judged]));
        ++verdicts_["crashes"];
        return judged + 1;
    }

    void count(const Flip& flip, FlipVerdict verdict)
    {
        switch (verdict)
        {
            case FlipVerdict::right:
                ++verdicts_["read right"];
                break;
            case FlipVerdict::refused:
                ++verdicts_["refused"];
                break;
            case FlipVerdict::wrong:
                report_.failed("at " + name(flip));
                return;
        }
        report_.passed();
    }

    std::string name(const Flip& flip) const
    {
        return filesOf(place_.folder)[flip.file].filename().string() + ", byte " +
               std::to_string(flip.offset) + ", mask " + std::to_string(flip.mask);
    }

    const Place& place_;
    Report& report_;
    std::map<std::string, std::uint64_t> verdicts_;
};

}  // namespace

int runFlips(const Settings& settings)
{
    const TemporaryFolder folder;
    const Place place{.folder = folder.path() / "store", .passphrase = std::nullopt};
    fillStore(place);
    Random random(settings.seed);
    auto flips = everyFlip(place.folder, random);
    const auto all = flips.size();
    if (settings.count != 0 && settings.count < all)
        flips.resize(settings.count);
    Report report("flips", flips.size(), settings.seed);
    Flips run(place, report);
    run.judge(flips);
    return report.close(std::to_string(flips.size()) + " of " + std::to_string(all) +
                        " flips: " + run.detail());
}

}  // namespace soak
