#include "tests/soak/Expectation.hpp"
#include "tests/soak/FileWatcher.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <atomic>

namespace soak
{

using platform::KeychainStatus;
using enum Step::Kind;

namespace
{

/// Which calls a fault hits.
enum class Hits
{
    changes,
    syncs,
    reads,
};

/// What goes wrong, once or from then on.
struct Fault
{
    const char* name;
    Fate fate;
    bool forEver;
    Hits hits = Hits::changes;
};

constexpr Fault changeFaults[]{{"no space from then on", Fate::full, true},
                               {"no space once", Fate::full, false},
                               {"short write", Fate::half, false},
                               {"input/output error once", Fate::error, false},
                               {"input/output error from then on", Fate::error, true},
                               {"failed sync", Fate::error, false, Hits::syncs}};

constexpr Fault readFaults[]{{"failed read", Fate::error, false, Hits::reads},
                             {"failed reads from then on", Fate::error, true, Hits::reads}};

/// Refuses the n-th call of the fault's kind, while it watches.
class Saboteur final : public FileWatcher
{
public:
    Saboteur(const Fault& fault, std::uint64_t call) : fault_(fault), left_(call) {}

    Fate before(const FileCall& call) override
    {
        if (!isArmed || !isHit(call.kind))
            return Fate::done;
        const bool strikes = hasStruck ? fault_.forEver : --left_ == 0;
        if (!strikes)
            return Fate::done;
        hasStruck = true;
        // Nothing but a write can be done by half.
        const bool isHalf = fault_.fate == Fate::half && call.kind != FileCall::Kind::write;
        return isHalf ? Fate::full : fault_.fate;
    }

    std::atomic<bool> isArmed = false;
    std::atomic<bool> hasStruck = false;

private:
    bool isHit(FileCall::Kind kind) const
    {
        using enum FileCall::Kind;
        if (fault_.hits == Hits::syncs)
            return kind == sync || kind == syncFolder;
        return (kind == read) == (fault_.hits == Hits::reads);
    }

    const Fault& fault_;
    std::atomic<std::uint64_t> left_;
};

/// A step, and the store before it.
struct Case
{
    Place place;
    Expectation before = {};
    Step step = {};
    /// Whether the fault waits until the store is open.
    bool isOpen = false;
};

class Faults
{
public:
    explicit Faults(Report& report) : report_(report) {}

    /// Lets one call after the other fail, until the fault meets none any more. `trial` is given
    /// the saboteur, and tells what went wrong.
    template <class Trial>
    void everyCall(const Fault& fault, const std::string& where, Trial trial)
    {
        constexpr std::uint64_t tooMany = 5000;
        for (std::uint64_t call = 1; call < tooMany; ++call)
        {
            const auto saboteur = std::make_shared<Saboteur>(fault, call);
            watchFiles(saboteur);
            const std::string wrong = trial(*saboteur);
            watchFiles(nullptr);
            if (!wrong.empty() || saboteur->hasStruck)
                report_.judged(wrong, where + fault.name + " at call " + std::to_string(call));
            if (!saboteur->hasStruck)
                return;
        }
        report_.failed(where + fault.name + " does not end");
    }

    std::string change(const Case& one, Saboteur& saboteur)
    {
        const TemporaryFolder folder;
        auto place = one.place;
        place.folder = folder.path() / "store";
        if (std::filesystem::exists(one.place.folder))
            std::filesystem::copy(one.place.folder, place.folder,
                                  std::filesystem::copy_options::recursive);
        Store store(place, Below::watched);
        if (one.isOpen)
            store.get(keyAt(0));
        saboteur.isArmed = true;
        const auto status = carryOut(one.step, store);
        saboteur.isArmed = false;
        auto expectation = one.before;
        auto wrong = judge(one.step, status, store.diagnostics(), expectation, saboteur.hasStruck);
        if (!wrong.empty())
            return wrong;

        // What was refused must not stand in the way of what follows, in the same store and in
        // others.
        const auto refusal = expectation.underWay();
        wrong = expectation.check(store);
        if (!wrong.empty())
            return "in the same store: " + wrong;
        if (refusal && expectation.stored() != one.before.stored())
            ++happened_;
        wrong = expectation.carryOut({put, 5, 1000}, store);
        if (!wrong.empty())
            return "afterwards: " + wrong;
        wrong = expectation.checkAnew(place);
        return wrong.empty() ? wrong : "opened anew: " + wrong;
    }

    /// What is answered all the same must be right.
    static std::string read(const Case& one, Saboteur& saboteur)
    {
        Store store(one.place, Below::watched);
        saboteur.isArmed = true;
        const auto wrong = one.before.checkAnswers(store);
        saboteur.isArmed = false;
        auto expectation = one.before;
        return wrong.empty() ? expectation.check(store) : wrong;
    }

    std::string detail() const
    {
        return std::to_string(refused_) + " steps refused, of which " + std::to_string(happened_) +
               " had happened all the same; " + std::to_string(succeeded_) +
               " succeeded in spite of the fault";
    }

private:
    std::string judge(const Step& step, KeychainStatus status, const std::string& diagnostics,
                      Expectation& expectation, bool hasStruck)
    {
        if (isAnswer(status))
        {
            succeeded_ += hasStruck ? 1 : 0;
            return expectation.acknowledged(step, status);
        }
        if (!hasStruck)
            return "without a fault: " + shown(status) + " " + diagnostics;
        ++refused_;
        expectation.began(step);
        return diagnostics.empty() ? shown(status) + " without a diagnostic" : "";
    }

    Report& report_;
    std::uint64_t refused_ = 0;
    std::uint64_t happened_ = 0;
    std::uint64_t succeeded_ = 0;
};

constexpr Step steps[]{{put, 0, 1},    {put, 1, 2},       {put, 0, 4},
                       {add, 2, 3},    {update, 1, 5},    {putRefused, 0, 6, 1},
                       {remove, 2, 7}, {removeAll, 0, 8}, {put, 3, 9}};

}  // namespace

int runFaults(const Settings& settings)
{
    Report report("faults", 0, settings.seed);
    Faults faults(report);
    const TemporaryFolder folder;
    Case one{.place = {.folder = folder.path() / "store"}};
    for (const auto& step : steps)
    {
        one.step = step;
        for (const bool isOpen : {false, true})
        {
            one.isOpen = isOpen;
            const auto where = shown(step) + (isOpen ? " in an open store, " : ", ");
            for (const auto& fault : changeFaults)
                faults.everyCall(fault, where,
                                 [&](Saboteur& saboteur) { return faults.change(one, saboteur); });
        }
        Store store(one.place);
        const auto wrong = one.before.carryOut(step, store);
        if (!wrong.empty())
            report.failed("without any fault: " + wrong);
    }
    for (const auto& fault : readFaults)
        faults.everyCall(fault, "",
                         [&](Saboteur& saboteur) { return Faults::read(one, saboteur); });
    return report.close(faults.detail());
}

}  // namespace soak
