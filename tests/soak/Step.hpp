#pragma once

#include "tests/soak/Random.hpp"
#include "tests/soak/Store.hpp"

namespace soak
{

/// One change of a store; trivially copyable, because it travels between processes as it is.
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
    /// Of the write, or of the passphrase.
    std::uint64_t number = 0;
    /// For `putRefused`, whose add is to be refused.
    std::uint8_t otherKey = 0;
};

/// Any step, with `number`; changes of the passphrase only where there is one.
Step anyStep(Random& random, std::uint64_t number, bool withPassphrase);

/// What the step must lead to, and with which status.
State after(const State& state, const Step& step);
platform::KeychainStatus expectedStatus(const State& state, const Step& step);

platform::KeychainStatus carryOut(const Step& step, Store& store);

/// For messages.
std::string shown(const Step& step);
std::string shown(const State& state);

}  // namespace soak
