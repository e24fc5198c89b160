#include "tests/soak/Flipper.hpp"

#include "tests/soak/Expectation.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>

namespace soak
{
namespace
{

using platform::KeychainStatus;

std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// The store, made anew in a folder of its own for each flip: one that is opened may be repaired.
class Copy
{
public:
    explicit Copy(const std::filesystem::path& original)
    {
        for (const auto& file : filesOf(original))
            files_.push_back({std::filesystem::relative(file, original), contentOf(file)});
    }

    Place write(const Place& place, const Flip& flip) const
    {
        auto copy = place;
        copy.folder = folder_.path() / "store";
        std::filesystem::remove_all(copy.folder);
        for (std::uint32_t index = 0; index < files_.size(); ++index)
        {
            const auto& [name, content] = files_[index];
            const auto path = copy.folder / name;
            std::filesystem::create_directories(path.parent_path());
            auto flipped = content;
            if (index == flip.file)
                flipped[flip.offset] = static_cast<char>(flipped[flip.offset] ^ flip.mask);
            std::ofstream(path, std::ios::binary) << flipped;
            chmod(path.c_str(), 0600);
            chmod(path.parent_path().c_str(), 0700);
        }
        return copy;
    }

private:
    struct File
    {
        std::filesystem::path name;
        std::string content;
    };
    std::vector<File> files_;
    TemporaryFolder folder_;
};

State stateOf(const Place& place)
{
    const auto store = openStore(place);
    Items items(store->items());
    const auto listing = items.all();
    if (listing.status != KeychainStatus::success || listing.numbers.empty())
        throw std::runtime_error("the store that is to be damaged cannot be read");
    return listing.numbers;
}

FlipVerdict judge(const Place& place, const Expectation& expectation)
{
    const auto store = openStore(place);
    Items items(store->items());
    const auto wrong = expectation.checkAnswers(items);
    if (!wrong.empty())
    {
        std::cerr << "flips: " << wrong << std::endl;
        return FlipVerdict::wrong;
    }
    const auto listed = items.all().status == KeychainStatus::success;
    return listed ? FlipVerdict::right : FlipVerdict::refused;
}

}  // namespace

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& store)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(store))
        if (entry.is_regular_file() && entry.file_size() != 0)
            files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

/// Judges the flips that it reads, one by one.
int beFlipper(const Place& place)
{
    const Copy copy(place.folder);
    const Expectation expectation(stateOf(place));
    Flip flip;
    while (read(STDIN_FILENO, &flip, sizeof flip) == sizeof flip)
    {
        const auto verdict = judge(copy.write(place, flip), expectation);
        if (write(STDOUT_FILENO, &verdict, sizeof verdict) != sizeof verdict)
            return 4;
    }
    return 0;
}

}  // namespace soak
