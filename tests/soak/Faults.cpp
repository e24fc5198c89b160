#include "tests/soak/Expectation.hpp"
#include "tests/soak/Report.hpp"
#include "tests/soak/Runs.hpp"
#include "tests/soak/WatchedVFS.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <array>
#include <atomic>
#include <memory>

namespace soak
{

using platform::KeychainStatus;
using enum Step::Kind;

namespace
{

/// What goes wrong, from which call on.
struct Fault
{
    const char* name;
    Fate fate;
    bool forEver;
    /// Only syncs, only reads, or every change.
    enum class Hits
    {
        changes,
        syncs,
        reads,
    } hits;
};

constexpr std::array<Fault, 6> changeFaults{
    {{"no space from then on", Fate::full, true, Fault::Hits::changes},
     {"no space once", Fate::full, false, Fault::Hits::changes},
     {"short write", Fate::half, false, Fault::Hits::changes},
     {"input/output error once", Fate::error, false, Fault::Hits::changes},
     {"input/output error from then on", Fate::error, true, Fault::Hits::changes},
     {"failed sync", Fate::error, false, Fault::Hits::syncs}}};

constexpr std::array<Fault, 2> readFaults{
    {{"failed read", Fate::error, false, Fault::Hits::reads},
     {"failed reads from then on", Fate::error, true, Fault::Hits::reads}}};

/// Refuses the n-th call of the fault's kind.
class Saboteur final : public FileWatcher
{
public:
    Saboteur(const Fault& fault, std::uint64_t call) : fault_(fault), left_(call) {}

    Fate before(const FileCall& call) override
    {
        if (!armed_ || !isHit(call.kind))
            return Fate::done;
        if (fault_.forEver && struck_)
            return fateOf(call);
        if (--left_ != 0)
            return Fate::done;
        struck_ = true;
        return fateOf(call);
    }

    void arm(bool armed) { armed_ = armed; }
    bool struck() const { return struck_; }

private:
    bool isHit(FileCall::Kind kind) const
    {
        using enum FileCall::Kind;
        if (fault_.hits == Fault::Hits::reads)
            return kind == read;
        if (fault_.hits == Fault::Hits::syncs)
            return kind == sync || kind == syncFolder;
        return kind != read && kind != lockForWriting;
    }

    /// Nothing but a write can be done by half.
    Fate fateOf(const FileCall& call) const
    {
        const bool isHalf = fault_.fate == Fate::half && call.kind != FileCall::Kind::write;
        return isHalf ? Fate::full : fault_.fate;
    }

    const Fault& fault_;
    std::atomic<std::uint64_t> left_;
    std::atomic<bool> armed_ = false;
    std::atomic<bool> struck_ = false;
};

/// A step, and the store before it.
struct Case
{
    Place place;
    Expectation before;
    Step step;
    /// Whether the fault waits until the store is open.
    bool isOpen = false;
};

class Faults
{
public:
    explicit Faults(Report& report) : report_(report) {}

    /// Fails one call after the other, until the step needs no further one.
    void everyCall(const Case& one, const Fault& fault)
    {
        for (std::uint64_t call = 1; call < tooMany; ++call)
        {
            const TemporaryFolder folder;
            auto place = one.place;
            place.folder = folder.path() / "store";
            if (std::filesystem::exists(one.place.folder))
                std::filesystem::copy(one.place.folder, place.folder,
                                      std::filesystem::copy_options::recursive);
            const auto saboteur = std::make_shared<Saboteur>(fault, call);
            watchFiles(saboteur);
            auto expectation = one.before;
            const auto wrong = trial(one, place, *saboteur, expectation);
            watchFiles(nullptr);
            if (wrong.empty() && saboteur->struck())
                report_.passed();
            else if (!wrong.empty())
                report_.failed(shown(one.step) + (one.isOpen ? " in an open store" : "") + ", " +
                               fault.name + " at call " + std::to_string(call) + ": " + wrong);
            if (!saboteur->struck())
                return;
        }
        report_.failed(shown(one.step) + " does not end");
    }

    std::string detail() const
    {
        return std::to_string(refused_) + " steps refused, of which " + std::to_string(happened_) +
               " had happened all the same; " + std::to_string(succeeded_) +
               " succeeded in spite of the fault";
    }

private:
    static constexpr std::uint64_t tooMany = 5000;

    std::string trial(const Case& one, Place& place, Saboteur& saboteur, Expectation& expectation)
    {
        const auto store = openStore(place, Below::watched);
        Items items(store->items());
        if (one.isOpen)
            items.get(keyAt(0));

        saboteur.arm(true);
        const auto status = carryOut(one.step, items, *store);
        saboteur.arm(false);
        auto wrong = judge(one.step, status, store->diagnostics(), expectation, saboteur.struck());
        if (!wrong.empty())
            return wrong;

        // What was refused must not stand in the way of what follows, in the same store and in
        // others.
        const auto refusal = expectation.underWay();
        wrong = expectation.check(items);
        if (!wrong.empty())
            return "in the same store: " + wrong + " " + store->diagnostics();
        if (refusal && expectation.stored() != one.before.stored())
            ++happened_;
        const Step next{.kind = put, .key = 5, .otherKey = 0, .number = 1000};
        const auto nextStatus = carryOut(next, items, *store);
        wrong = expectation.acknowledged(next, nextStatus);
        if (!wrong.empty())
            return "afterwards: " + wrong + " " + store->diagnostics();
        wrong = checkAnew(place, expectation);
        return wrong.empty() ? wrong : "opened anew: " + wrong;
    }

    std::string judge(const Step& step, KeychainStatus status, const std::string& diagnostics,
                      Expectation& expectation, bool struck)
    {
        const bool isAnswer = status == KeychainStatus::success ||
                              status == KeychainStatus::itemNotFound ||
                              status == KeychainStatus::duplicateItem;
        if (isAnswer)
        {
            succeeded_ += struck ? 1 : 0;
            return expectation.acknowledged(step, status);
        }
        if (!struck)
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

/// Every n-th read fails: what is answered all the same must be right.
void failReads(const Case& one, const Fault& fault, Report& report)
{
    for (std::uint64_t call = 1;; ++call)
    {
        const auto saboteur = std::make_shared<Saboteur>(fault, call);
        watchFiles(saboteur);
        std::string wrong;
        {
            const auto store = openStore(one.place, Below::watched);
            Items items(store->items());
            saboteur->arm(true);
            wrong = one.before.checkAnswers(items);
            saboteur->arm(false);
            auto expectation = one.before;
            if (wrong.empty())
                wrong = expectation.check(items);
        }
        watchFiles(nullptr);
        if (!wrong.empty())
            report.failed(std::string(fault.name) + " at call " + std::to_string(call) + ": " +
                          wrong);
        if (!saboteur->struck())
            return;
        if (wrong.empty())
            report.passed();
    }
}

}  // namespace

int runFaults(const Settings& settings)
{
    Report report("faults", 0, settings.seed);
    Faults faults(report);
    const std::vector<Step> steps{{.kind = put, .key = 0, .otherKey = 0, .number = 1},
                                  {.kind = put, .key = 1, .otherKey = 0, .number = 2},
                                  {.kind = put, .key = 0, .otherKey = 0, .number = 4},
                                  {.kind = add, .key = 2, .otherKey = 0, .number = 3},
                                  {.kind = update, .key = 1, .otherKey = 0, .number = 5},
                                  {.kind = putRefused, .key = 0, .otherKey = 1, .number = 6},
                                  {.kind = remove, .key = 2, .otherKey = 0, .number = 7},
                                  {.kind = removeAll, .key = 0, .otherKey = 0, .number = 8},
                                  {.kind = put, .key = 3, .otherKey = 0, .number = 9}};
    const TemporaryFolder folder;
    Case one{.place = {.folder = folder.path() / "store", .passphrase = std::nullopt},
             .before = {},
             .step = {},
             .isOpen = false};
    for (const auto& step : steps)
    {
        one.step = step;
        for (const bool isOpen : {false, true})
        {
            one.isOpen = isOpen;
            for (const auto& fault : changeFaults)
                faults.everyCall(one, fault);
        }
        const auto store = openStore(one.place);
        Items items(store->items());
        const auto wrong = one.before.acknowledged(step, carryOut(step, items, *store));
        if (!wrong.empty())
            report.failed("without any fault: " + wrong + " " + store->diagnostics());
    }
    for (const auto& fault : readFaults)
        failReads(one, fault, report);
    return report.close(faults.detail());
}

}  // namespace soak
