#pragma once

#include "tests/soak/CyclesProgram.hpp"
#include "tests/soak/CyclesServer.hpp"
#include "tests/soak/CyclesShared.hpp"
#include "tests/soak/Random.hpp"

#include <string>

namespace soak
{

/// Sign-in, refresh and sign-out by the two programs of one user, over and over, in real time. Some
/// cycles are calm, and everything in them must succeed; in the others calls are cancelled and
/// accounts released at any moment. After each cycle every call has ended once, and both programs
/// agree with the store.
///
/// The thread that makes it is the main thread of the programs. Most of the time they wait for each
/// other, so that several users fit on a machine.
class Cycles
{
public:
    Cycles(CyclesServer& server, CyclesShared& shared, std::filesystem::path folder,
           std::uint64_t seed);

    void run(std::uint64_t count);

private:
    using Call = std::shared_ptr<CyclesCall>;

    CyclesProgram& anyProgram() { return random_.oneIn(2) ? first_ : second_; }
    std::string address()
    {
        return user_ + (random_.oneIn(2) ? "-one@example.org" : "-two@example.org");
    }
    std::chrono::microseconds moment(unsigned milliseconds)
    {
        return std::chrono::microseconds(random_.below(1'000 * milliseconds));
    }

    std::string calm();
    std::string signInCalmly(CyclesProgram& chief, CyclesProgram& other);
    std::string disturbed();
    void act(CyclesProgram& program);
    void beginSignIn(CyclesProgram& program);
    void cancelOne();
    std::string settle();
    std::string callsEnded();
    std::string agree();
    std::string shown();
    std::string succeed(const Call& call);
    std::string bothReach(const std::function<bool(const tessera::AccountState&)>& state,
                          const char* what);
    std::string cycle(std::uint64_t number);
    std::string weigh();

    CyclesServer& server_;
    CyclesShared& shared_;
    const std::string user_;
    Random random_;
    CyclesStage stage_;
    CyclesProgram first_;
    CyclesProgram second_;
    CyclesCounts counts_;
    bool authenticates_ = false;
    /// Of this cycle and of the one before it, for messages.
    std::string acts_;
    std::string before_;
};

}  // namespace soak
