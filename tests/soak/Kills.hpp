#pragma once

#include "tests/soak/Child.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Journal.hpp"
#include "tests/soak/Random.hpp"
#include "tests/soak/Report.hpp"

#include <functional>
#include <string>

namespace soak
{

/// Lets a writer change a store, kills at a random instant, and compares what the store holds then
/// with what the writer was told. One object goes on with one store for many rounds.
class Kills
{
public:
    Kills(Report& report, Random& random) : report_(report), random_(random) {}

    /// From here on, another store, which is empty.
    void startAnew(Place place);

    /// One round: `kill` is called at the random instant, and must lead to the writer's end.
    /// False when something was wrong; the store is of no further use then.
    bool round(const std::function<void(Child&)>& kill);

    /// How often the kill fell into a step, between two, and before the first.
    std::string detail() const;

    /// In the next rounds the kill may make a step fail instead of ending the writer.
    void allowFailedSteps(bool allowed) { allowsFailedSteps_ = allowed; }

    const Expectation& expectation() const { return expectation_; }

private:
    void waitForTheInstant(Child& writer);
    void take(const JournalRecord& record);
    void count();

    Report& report_;
    Random& random_;
    Place place_;
    Expectation expectation_;
    bool allowsFailedSteps_ = false;
    std::string fault_;

    std::uint64_t number_ = 0;
    std::uint64_t stepsInRound_ = 0;
    std::uint64_t steps_ = 0;
    std::uint64_t inStep_ = 0;
    std::uint64_t beforeFirst_ = 0;
    std::uint64_t between_ = 0;
    std::uint64_t stores_ = 0;
};

}  // namespace soak
