#include "tests/soak/Disk.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Recording.hpp"
#include "tests/soak/Report.hpp"
#include "tests/soak/Runs.hpp"
#include "tests/soak/WatchedVFS.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <algorithm>
#include <array>
#include <iostream>
#include <map>

namespace soak
{
namespace
{

using Unsynced = Disk::Unsynced;

struct Remains
{
    Unsynced names;
    Unsynced data;
};

constexpr std::array<Remains, 4> plainRemains{{{Unsynced::lost, Unsynced::lost},
                                               {Unsynced::kept, Unsynced::lost},
                                               {Unsynced::lost, Unsynced::kept},
                                               {Unsynced::kept, Unsynced::kept}}};

/// Cuts the power in one recording.
class PowerCut
{
public:
    PowerCut(const Recording& recording, Random& random, std::uint64_t subsets)
        : recording_(recording), random_(random), subsets_(subsets)
    {}

    void atEveryCall(Report& report)
    {
        Disk disk;
        for (std::size_t calls = 0;; ++calls)
        {
            for (std::uint64_t variant = 0; variant < plainRemains.size() + subsets_; ++variant)
            {
                const auto wrong = cutAndCheck(disk, calls, variant);
                if (wrong.empty())
                    report.passed();
                else
                    report.failed(recording_.name + ", cut " + place(calls) + ": " + wrong);
            }
            if (calls == recording_.events.size())
                return;
            disk.play(recording_.events[calls]);
        }
    }

    std::uint64_t images() const { return judged_.size(); }

    /// Whether any cut is seen to go wrong when these syncs, in their order, never happen.
    bool isNoticed(const std::vector<std::size_t>& syncs)
    {
        // The search ends at the first, so that it may look closer.
        const auto variants = plainRemains.size() + std::max<std::uint64_t>(subsets_, 12);
        Disk disk;
        for (std::size_t call = 0; call < recording_.events.size(); ++call)
        {
            if (!std::ranges::binary_search(syncs, call))
                disk.play(recording_.events[call]);
            if (call < syncs.front())
                continue;
            for (std::uint64_t variant = 0; variant < variants; ++variant)
                if (!cutAndCheck(disk, call + 1, variant).empty())
                    return true;
            // From the next sync of the same thing on, nothing is different.
            if (call > syncs.back() &&
                isSameSync(recording_.events[call], recording_.events[syncs.back()]))
                return false;
        }
        return false;
    }

    /// A process is killed after each call, which leaves its changes in the memory of the machine;
    /// the next process changes an item, and then the power is cut: what the first one had not
    /// synced, the second must not build upon.
    void afterEveryKill(Report& report)
    {
        Disk disk;
        for (std::size_t calls = 0; calls <= recording_.events.size(); ++calls)
        {
            const auto wrong = killAndCut(disk, calls);
            if (wrong.empty())
                report.passed();
            else
                report.failed(recording_.name + ", killed " + place(calls) + ": " + wrong);
            if (calls < recording_.events.size())
                disk.play(recording_.events[calls]);
        }
    }

private:
    std::string killAndCut(const Disk& atKill, std::size_t calls)
    {
        const TemporaryFolder folder;
        atKill.cut(Unsynced::kept, Unsynced::kept, random_).writeTo(folder.path());
        auto expectation = recording_.expectationAt(calls);
        auto store = recording_.place;
        store.folder = folder.path() / recording_.place.folder.filename();
        const auto log = std::make_shared<DiskLog>(folder.path());
        watchFiles(log);
        auto wrong = changeAfterKill(store, expectation);
        watchFiles(nullptr);
        if (!wrong.empty())
            return wrong;

        Disk disk(atKill);
        for (const auto& event : log->events())
            disk.play(event);
        for (std::uint64_t variant = 0; variant < plainRemains.size() + subsets_; ++variant)
        {
            auto copy = expectation;
            wrong = cutAndCheck(disk, copy, store, variant);
            if (!wrong.empty())
                return "then a put, then a power cut: " + wrong;
        }
        return {};
    }

    static std::string changeAfterKill(Place& place, Expectation& expectation)
    {
        auto wrong = checkAnew(place, expectation, Below::watched);
        if (!wrong.empty())
            return wrong;
        const auto store = openStore(place, Below::watched);
        Items items(store->items());
        const Step step{.kind = Step::Kind::put, .key = 5, .otherKey = 0, .number = 1000};
        wrong = expectation.acknowledged(step, carryOut(step, items, *store));
        return wrong.empty() ? wrong : wrong + " " + store->diagnostics();
    }

    static bool isSameSync(const DiskEvent& left, const DiskEvent& right)
    {
        return left.kind == right.kind && left.path == right.path;
    }

    std::string place(std::size_t calls) const
    {
        if (calls == 0)
            return "before the first call";
        return "after call " + std::to_string(calls) + " (" + shown(recording_.events[calls - 1]) +
               ") of " + recording_.stepAt(calls);
    }

    std::string cutAndCheck(const Disk& disk, std::size_t calls, std::uint64_t variant)
    {
        auto expectation = recording_.expectationAt(calls);
        return cutAndCheck(disk, expectation, recording_.place, variant);
    }

    std::string cutAndCheck(const Disk& disk, Expectation& expectation, Place store,
                            std::uint64_t variant)
    {
        const auto remains = variant < plainRemains.size() ? plainRemains[variant]
                                                           : Remains{Unsynced::any, Unsynced::any};
        const auto image = disk.cut(remains.names, remains.data, random_);
        // Many cuts leave the same, and it was judged before.
        const auto [judged, isNew] =
            judged_.emplace(std::pair(image.hash(), expectation.text()), std::string());
        if (isNew)
        {
            const TemporaryFolder folder;
            image.writeTo(folder.path());
            store.folder = folder.path() / recording_.place.folder.filename();
            judged->second = checkAnew(store, expectation);
        }
        return judged->second.empty()
                   ? ""
                   : "remains " + std::to_string(variant) + ": " + judged->second;
    }

    const Recording& recording_;
    Random& random_;
    const std::uint64_t subsets_;
    std::map<std::pair<std::size_t, std::string>, std::string> judged_;
};

/// A run that never fails when a sync is gone would prove nothing about the ones that are there. So
/// each is taken out, and each step must have one that is missed. Some are followed by another one
/// of the same file or folder before anything depends on them; so all of one are taken out
/// together, too, and what even then nothing depends on is told.
std::string takeOutSyncs(const Recording& recording, PowerCut& cut, Report& report)
{
    std::map<std::string, std::vector<std::size_t>> ofFile;
    std::map<std::string, std::vector<std::size_t>> ofStep;
    for (std::size_t call = 0; call < recording.events.size(); ++call)
    {
        const auto& event = recording.events[call];
        if (event.kind != FileCall::Kind::sync && event.kind != FileCall::Kind::syncFolder)
            continue;
        ofFile[shown(event)].push_back(call);
        ofStep[recording.stepAt(call + 1)].push_back(call);
    }
    std::size_t noticed = 0;
    std::size_t all = 0;
    for (const auto& [step, syncs] : ofStep)
    {
        const auto missed =
            std::ranges::count_if(syncs, [&](std::size_t sync) { return cut.isNoticed({sync}); });
        noticed += static_cast<std::size_t>(missed);
        all += syncs.size();
        // What follows a step has nothing to acknowledge.
        if (missed == 0 && step.starts_with('"'))
            report.failed(recording.name + ": no sync of " + step + " is missed when taken out");
        else
            report.passed();
    }
    std::string idle;
    for (const auto& [file, syncs] : ofFile)
        if (!cut.isNoticed(syncs))
            idle += (idle.empty() ? "; nothing depends on: " : ", ") + file;
    return std::to_string(noticed) + " of " + std::to_string(all) +
           " syncs are missed when taken out alone" + idle;
}

}  // namespace

int runPowerCut(const Settings& settings)
{
    const auto subsets = settings.count ? settings.count : 30;
    Report report("powercut", 0, settings.seed);
    Random random(settings.seed);
    for (const auto& recording : {recordWithKeyFile(), recordWithPassphrase()})
    {
        if (!recording.fault.empty())
        {
            report.failed(recording.name + ": " + recording.fault);
            continue;
        }
        PowerCut cut(recording, random, subsets);
        cut.atEveryCall(report);
        cut.afterEveryKill(report);
        const auto syncs = takeOutSyncs(recording, cut, report);
        std::cout << "powercut: " << recording.name << ": " << recording.events.size()
                  << " calls on the disk, " << cut.images() << " different disks, " << syncs
                  << std::endl;
    }
    return report.close({});
}

}  // namespace soak
