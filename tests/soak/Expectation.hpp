#pragma once

#include "tests/soak/Step.hpp"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace soak
{

/// What a store may hold, from what is known of the steps: one state after a step that was
/// acknowledged, two while one is under way or has failed.
class Expectation
{
public:
    Expectation() = default;
    explicit Expectation(State stored) : stored_(std::move(stored)) {}

    /// The store removes several items one by one, so that a part of them may be left; and a
    /// creation that was cut off may leave an item without a value, which no reader is given and
    /// whose removal succeeds.
    void expectPartialRemovals() { partialRemovals_ = true; }

    void began(const Step& step);

    /// Returns what is wrong with the answer, or nothing.
    std::string acknowledged(const Step& step, platform::KeychainStatus status);

    /// What the step must answer now.
    platform::KeychainStatus expected(const Step& step) const
    {
        return expectedStatus(stored_, step);
    }

    /// Reads the store while reads may fail: an error says nothing, all else must be right. Expects
    /// no step under way. Returns what is wrong, or nothing.
    std::string checkAnswers(Items& items) const;

    /// Reads the store and compares. From then on what was read is what must stay. Returns what is
    /// wrong, or nothing.
    std::string check(Items& items);

    /// The passphrases that may be the one now, the likelier first.
    std::vector<std::uint64_t> passphrases() const;
    void setPassphrase(std::uint64_t number);

    /// All of it, for messages and comparisons.
    std::string text() const;

    const State& stored() const { return stored_; }
    const std::optional<Step>& underWay() const { return underWay_; }

private:
    bool explains(const State& found) const;
    bool removesWhatWasUnfinished(const Step& step) const;

    bool partialRemovals_ = false;
    State stored_;
    std::optional<Step> underWay_;
    std::set<std::uint8_t> perhapsUnfinished_;
    std::optional<std::uint64_t> passphrase_;
};

/// Opens the store as a process does that has just started, and checks it; finds out which
/// passphrase is the one now. Returns what is wrong, or nothing.
std::string checkAnew(Place& place, Expectation& expectation, Below below = Below::machine);

}  // namespace soak
