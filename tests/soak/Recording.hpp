#pragma once

#include "tests/soak/DiskLog.hpp"
#include "tests/soak/Expectation.hpp"

#include <string>
#include <vector>

namespace soak
{

/// The embedded keychain's life from its first start on, with every change of the disk below it.
struct Recording
{
    struct Mark
    {
        /// How many events there had been.
        std::size_t events;
        Step step;
        bool ended;
    };

    std::string name;
    Place place;
    std::vector<DiskEvent> events;
    std::vector<Mark> marks;
    /// Why it is of no use; else empty.
    std::string fault;

    /// What the store may hold when the power is cut after so many events.
    Expectation expectationAt(std::size_t events) const;

    /// During what the last of so many events happened, for messages.
    std::string stepAt(std::size_t events) const;
};

/// Every kind of step, in two sessions.
Recording recordWithKeyFile();

/// A shorter life, since opening takes long there, with changes of the passphrase.
Recording recordWithPassphrase();

}  // namespace soak
