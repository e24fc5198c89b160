#pragma once

#include "tests/soak/Items.hpp"
#include "tests/soak/Place.hpp"
#include "tests/soak/Random.hpp"

#include <cstdint>
#include <map>
#include <string>

namespace soak
{

/// What is stored: for each key, which write.
using State = std::map<std::string, std::uint64_t, std::less<>>;

/// One change of a store; trivially copyable, because it travels through pipes as it is.
struct Step
{
    enum class Kind : std::uint8_t
    {
        put,
        add,
        update,
        remove,
        removeAll,
        putRefused,
        changePassphrase,
    };

    Kind kind = Kind::put;
    std::uint8_t key = 0;
    /// For `putRefused`, whose add is to be refused.
    std::uint8_t otherKey = 0;
    /// Of the write, or of the passphrase.
    std::uint64_t number = 0;
};

/// Any step, with `number`; changes of the passphrase only where there is one.
Step anyStep(Random& random, std::uint64_t number, bool withPassphrase);

/// What the step must lead to, and with which status.
State after(const State& state, const Step& step);
platform::KeychainStatus expectedStatus(const State& state, const Step& step);

platform::KeychainStatus carryOut(const Step& step, Items& items, Store& store);

/// For messages.
std::string shown(const Step& step);
std::string shown(const State& state);

}  // namespace soak
