#include "tests/soak/Journal.hpp"
#include "tests/soak/Runs.hpp"

#include <unistd.h>
#include <iostream>

namespace soak
{
namespace
{

/// What the item is, whose absence or presence the step hits upon, is not known here; all three are
/// answers to a step that was carried out.
bool isAnswer(platform::KeychainStatus status)
{
    using enum platform::KeychainStatus;
    return status == success || status == itemNotFound || status == duplicateItem;
}

}  // namespace

/// Changes the store until it is killed or a step fails, and tells of each step before and after.
int beWriter(const Place& place, std::uint64_t seed, std::uint64_t firstNumber, bool isQuiet)
{
    Random random(seed);
    const auto store = openStore(place);
    Items items(store->items());
    for (auto number = firstNumber;; ++number)
    {
        auto step = anyStep(random, number, place.passphrase.has_value());
        // The passphrase of a store without a first item cannot be changed.
        if (number == firstNumber)
            step.kind = Step::Kind::put;
        writeRecord(STDOUT_FILENO, {.step = step, .ended = false, .status = 0});
        const auto status = carryOut(step, items, *store);
        writeRecord(STDOUT_FILENO,
                    {.step = step, .ended = true, .status = static_cast<std::int32_t>(status)});
        if (isAnswer(status))
            continue;
        if (!isQuiet)
            std::cerr << shown(step) << ": " << shown(status) << ": " << store->diagnostics()
                      << std::endl;
        return 3;
    }
}

}  // namespace soak
