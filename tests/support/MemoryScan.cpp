#include "tests/support/MemoryScan.hpp"

#include "Platform/Basics/Wipe.hpp"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

constexpr std::size_t window = 1 << 20;

struct Region
{
    std::size_t begin;
    std::size_t end;
};

/// All but the one that `own` gives.
std::vector<Region> writableRegions(Region own)
{
    std::vector<Region> regions;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
    {
        std::size_t begin = 0;
        std::size_t end = 0;
        char rights[5] = {};
        if (std::sscanf(line.c_str(), "%zx-%zx %4s", &begin, &end, rights) == 3 &&
            rights[0] == 'r' && rights[1] == 'w')
        {
            regions.push_back({begin, std::max(begin, std::min(end, own.begin))});
            regions.push_back({std::min(end, std::max(begin, own.end)), end});
        }
    }
    return regions;
}

/// How often `turned` stands, with its bits turned back, in what was read.
std::size_t count(const unsigned char* read, std::size_t size, const std::string& turned)
{
    std::size_t found = 0;
    const auto first = static_cast<unsigned char>(~turned[0]);
    for (std::size_t i = 0; i + turned.size() <= size; ++i)
    {
        if (read[i] != first)
            continue;
        std::size_t same = 1;
        while (same < turned.size() && read[i + same] == static_cast<unsigned char>(~turned[same]))
            ++same;
        found += same == turned.size() ? 1 : 0;
    }
    return found;
}

}  // namespace

UniqueText::UniqueText(std::size_t length)
{
    std::random_device random;
    for (std::size_t i = 0; i < length; ++i)
        turned_.push_back(static_cast<char>(~('a' + random() % 26)));
}

void UniqueText::write(char* text) const
{
    for (std::size_t i = 0; i < turned_.size(); ++i)
        text[i] = static_cast<char>(~turned_[i]);
}

void UniqueText::wipe(char* text) const
{
    platform::wipe(text, turned_.size());
}

std::size_t UniqueText::occurrences() const
{
    // A mapping of its own, so that what was read is not found once more.
    void* mapped =
        mmap(nullptr, window, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const int memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    if (mapped == MAP_FAILED || memory < 0)
        throw std::runtime_error("the process's memory cannot be read");
    auto* buffer = static_cast<unsigned char*>(mapped);
    const auto own = reinterpret_cast<std::size_t>(mapped);

    std::size_t found = 0;
    for (const auto& region : writableRegions({own, own + window}))
        for (auto at = region.begin; at < region.end; at += window - turned_.size())
        {
            const auto size =
                pread(memory, buffer, std::min(window, region.end - at), static_cast<off_t>(at));
            if (size > 0)
                found += count(buffer, static_cast<std::size_t>(size), turned_);
        }
    close(memory);
    munmap(mapped, window);
    return found;
}
