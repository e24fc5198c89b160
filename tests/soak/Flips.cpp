#include "tests/soak/Child.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <sys/socket.h>
#include <sys/stat.h>
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <span>
#include <stdexcept>

namespace soak
{
namespace
{

using platform::KeychainStatus;
using Path = std::filesystem::path;

// A crash costs the rest of a batch a second start. Less than a socket holds.
constexpr std::size_t batchSize = 1000;

/// A byte of one of the store's files, and which of its bits are turned.
struct Flip
{
    std::uint64_t offset = 0;
    std::uint32_t file = 0;
    std::uint8_t mask = 0;
};

enum class Verdict : std::uint8_t
{
    /// Every answer was right.
    right,
    /// Every answer was right or an access error, and at least one was an error.
    refused,
    wrong,
};

/// In a fixed order.
std::vector<Path> filesOf(const Path& store)
{
    std::vector<Path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(store))
        if (entry.is_regular_file() && entry.file_size() != 0)
            files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

/// Every byte of every file, with all its bits turned and with one, in a random order.
std::vector<Flip> everyFlip(const Path& store, Random& random)
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

/// Small, since every byte costs an opening, but with every kind of page in it: rows on several
/// pages and the page above those, the tail of a long value, and what was free again.
void fillStore(const Place& place)
{
    Store store(place);
    const auto put = [&](std::size_t key, std::size_t least, std::size_t most)
    {
        const auto status = store.put(keyAt(key), writeOfLength(keyAt(key), least, most));
        if (status != KeychainStatus::success)
            throw std::runtime_error("the store that is to be damaged was not filled: " +
                                     shown(status) + " " + store.diagnostics());
    };
    for (const std::size_t key : {0U, 1U, 2U, 4U})
    {
        put(key, 200, 500);
        put(key, 1'100, 1'900);
    }
    put(3, 5'000, 10'000);
    put(5, 1'000, 3'000);
    store.remove(keyAt(5));
}

/// Hands the flips to processes of their own; one that dies is the fault of its last flip.
class Flips
{
public:
    Flips(const Place& place, Report& report)
        : place_(place), files_(filesOf(place.folder)), report_(report)
    {}

    /// Returns how many were judged, at least one.
    std::size_t judge(std::span<const Flip> flips)
    {
        flips = flips.first(std::min(batchSize, flips.size()));
        Child child(place_.command("flipper"));
        const auto size = static_cast<ssize_t>(flips.size_bytes());
        if (write(child.channel(), flips.data(), flips.size_bytes()) != size)
            throw std::runtime_error("the flips were not handed over");
        shutdown(child.channel(), SHUT_WR);
        std::size_t judged = 0;
        while (const auto verdict = hear<Verdict>(child.channel()))
            count(flips[judged++], *verdict);
        const auto end = child.wait();
        if (judged == flips.size() && end == 0)
            return judged;
        report_.failed("the process ended with " + shownEnd(end) + " behind " +
                       std::to_string(judged) + " flips, at " +
                       name(flips[std::min(judged, flips.size() - 1)]));
        ++crashes_;
        return std::min(judged + 1, flips.size());
    }

    std::string detail() const
    {
        return std::to_string(right_) + " read right, " + std::to_string(refused_) + " refused, " +
               std::to_string(crashes_) + " crashes";
    }

private:
    void count(const Flip& flip, Verdict verdict)
    {
        if (verdict == Verdict::wrong)
            return report_.failed("at " + name(flip));
        ++(verdict == Verdict::right ? right_ : refused_);
        report_.passed();
    }

    std::string name(const Flip& flip) const
    {
        return files_[flip.file].filename().string() + ", byte " + std::to_string(flip.offset) +
               ", mask " + std::to_string(flip.mask);
    }

    const Place& place_;
    const std::vector<Path> files_;
    Report& report_;
    std::uint64_t right_ = 0;
    std::uint64_t refused_ = 0;
    std::uint64_t crashes_ = 0;
};

/// The store, made anew in a folder of its own for each flip: one that is opened may be repaired.
class Copy
{
public:
    explicit Copy(const Path& original)
    {
        for (const auto& file : filesOf(original))
        {
            std::ifstream in(file, std::ios::binary);
            files_.emplace_back(std::filesystem::relative(file, original),
                                std::string(std::istreambuf_iterator<char>(in), {}));
        }
    }

    Place write(const Flip& flip) const
    {
        const Place copy{.folder = folder_.path() / "store"};
        std::filesystem::remove_all(copy.folder);
        for (std::uint32_t index = 0; index < files_.size(); ++index)
        {
            const auto path = copy.folder / files_[index].first;
            std::filesystem::create_directories(path.parent_path());
            auto content = files_[index].second;
            if (index == flip.file)
                content[flip.offset] = static_cast<char>(content[flip.offset] ^ flip.mask);
            std::ofstream(path, std::ios::binary) << content;
            chmod(path.c_str(), 0600);
            chmod(path.parent_path().c_str(), 0700);
        }
        return copy;
    }

private:
    std::vector<std::pair<Path, std::string>> files_;
    TemporaryFolder folder_;
};

Verdict judge(const Place& place, const Expectation& expectation)
{
    Store store(place);
    const auto wrong = expectation.checkAnswers(store);
    if (!wrong.empty())
    {
        std::cerr << "flips: " << wrong << std::endl;
        return Verdict::wrong;
    }
    return store.all().status == KeychainStatus::success ? Verdict::right : Verdict::refused;
}

}  // namespace

int runFlips(const Settings& settings)
{
    const TemporaryFolder folder;
    const Place place{.folder = folder.path() / "store"};
    fillStore(place);
    Random random(settings.seed);
    auto flips = everyFlip(place.folder, random);
    const auto all = flips.size();
    flips.resize(std::min(all, settings.countOr(all)));
    Report report("flips", flips.size(), settings.seed);
    Flips run(place, report);
    for (std::span<const Flip> left(flips); !left.empty();)
        left = left.subspan(run.judge(left));
    return report.close(std::to_string(flips.size()) + " of " + std::to_string(all) +
                        " flips: " + run.detail());
}

/// Judges the flips that it is told, one by one.
int beFlipper(const Settings& settings)
{
    const Copy copy(settings.place.folder);
    const auto listing = Store(settings.place).all();
    if (listing.status != KeychainStatus::success || listing.numbers.empty())
        throw std::runtime_error("the store that is to be damaged cannot be read");
    const Expectation expectation(listing.numbers);
    while (const auto flip = hear<Flip>(STDIN_FILENO))
        if (!tell(STDOUT_FILENO, judge(copy.write(*flip), expectation)))
            return 4;
    return 0;
}

}  // namespace soak
