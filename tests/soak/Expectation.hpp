#pragma once

#include "tests/soak/Step.hpp"

#include <set>

namespace soak
{

/// What a store may hold, from what is known of the steps: one state after a step that was
/// acknowledged, two while one is under way or has failed. What returns a text tells what is wrong,
/// or nothing.
class Expectation
{
public:
    Expectation() = default;
    explicit Expectation(State stored) : stored_(std::move(stored)) {}

    /// An empty store at `place`. A Secret Service removes several items one by one, so that a part
    /// of them may be left; and a creation that was cut off may leave an item without a value,
    /// which no reader is given and whose removal succeeds.
    explicit Expectation(const Place& place)
        : partialRemovals_(place.isSecretService()), passphrase_(place.passphrase)
    {}

    void began(const Step& step) { underWay_ = step; }

    /// The step was answered as it must be.
    void happened(const Step& step);

    std::string acknowledged(const Step& step, platform::KeychainStatus status);

    /// Carries the step out in a store that refuses nothing.
    std::string carryOut(const Step& step, Store& store);

    /// Reads the store while reads may fail: an error says nothing, all else must be right. Expects
    /// no step under way.
    std::string checkAnswers(Store& store) const;

    /// Reads the store and compares. From then on what was read is what must stay.
    std::string check(Store& store);

    /// Opens the store as a process does that has just started, and checks it; finds out which
    /// passphrase is the one now.
    std::string checkAnew(Place& place, Below below = Below::machine);

    /// All of it, for messages and comparisons.
    std::string text() const;

    const State& stored() const { return stored_; }
    const std::optional<Step>& underWay() const { return underWay_; }

private:
    bool explains(const State& found) const;
    bool removesWhatWasUnfinished(const Step& step) const;
    void noteUnfinished();
    std::string checkEachKey(Store& store, bool mayFail) const;

    bool partialRemovals_ = false;
    State stored_;
    std::optional<Step> underWay_;
    std::set<std::uint8_t> perhapsUnfinished_;
    std::optional<std::uint64_t> passphrase_;
};

}  // namespace soak
