#include "tests/soak/Disk.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Runs.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <algorithm>
#include <array>
#include <iostream>

namespace soak
{
namespace
{

using enum Step::Kind;
using Session = std::vector<Step>;
using Unsynced = Disk::Unsynced;

/// The embedded keychain's life from its first start on, with every change of the disk below it.
class Recording
{
public:
    Recording(std::string ofName, std::optional<std::uint64_t> passphrase,
              const std::vector<Session>& sessions)
        : name(std::move(ofName))
    {
        const TemporaryFolder folder;
        place = {.folder = folder.path() / "store", .passphrase = passphrase};
        const auto log = std::make_shared<DiskLog>(folder.path());
        watchFiles(log);
        Expectation expectation(place);
        auto current = place;
        for (const auto& session : sessions)
        {
            Store store(current, Below::watched);
            for (const auto& step : session)
            {
                marks_.push_back({log->events().size(), step, false});
                fault += expectation.carryOut(step, store);
                marks_.push_back({log->events().size(), step, true});
                if (step.kind == changePassphrase)
                    current.passphrase = step.number;
            }
        }
        watchFiles(nullptr);
        events = log->events();
    }

    /// What the store may hold when the power is cut after so many events.
    Expectation expectationAt(std::size_t count) const
    {
        Expectation expectation(place);
        for (const auto& mark : marks_)
            if (mark.ended && mark.events <= count)
                expectation.happened(mark.step);
            else if (mark.events < count)
                expectation.began(mark.step);
        return expectation;
    }

    /// During what the last of so many events happened, for messages.
    std::string stepAt(std::size_t count) const
    {
        std::string text = "the opening";
        for (const auto& mark : marks_)
            if (mark.events < count)
                text = (mark.ended ? "what follows \"" : "\"") + shown(mark.step) + "\"";
        return text;
    }

    const std::string name;
    Place place;
    std::vector<DiskEvent> events;
    /// Why it is of no use; else empty.
    std::string fault;

private:
    struct Mark
    {
        /// How many events there had been.
        std::size_t events;
        Step step;
        bool ended;
    };
    std::vector<Mark> marks_;
};

/// Every kind of step, in two sessions.
const std::vector<Session> everyStep{
    {{put, 0, 1}, {add, 1, 2}, {put, 0, 3}, {update, 1, 4}, {remove, 0, 5}, {put, 2, 6}},
    {{put, 3, 7}, {put, 1, 8}, {putRefused, 3, 9, 2}, {removeAll, 0, 10}, {add, 4, 11}}};

/// A shorter life, since opening takes long there, with changes of the passphrase.
const std::vector<Session> passphraseChanges{{{put, 0, 1}, {changePassphrase, 0, 2}},
                                             {{put, 0, 3}, {changePassphrase, 0, 4}}};

/// What a cut leaves of the names and of the data that were not synced. Behind the plain cases, any
/// subset.
struct Remains
{
    Unsynced names = Unsynced::any;
    Unsynced data = Unsynced::any;
};
constexpr std::array<Remains, 4> plainRemains{{{Unsynced::lost, Unsynced::lost},
                                               {Unsynced::kept, Unsynced::lost},
                                               {Unsynced::lost, Unsynced::kept},
                                               {Unsynced::kept, Unsynced::kept}}};

/// Cuts the power in one recording.
class PowerCut
{
public:
    PowerCut(const Recording& recording, const Settings& settings, Random& random, Report& report)
        : recording_(recording),
          variants_(plainRemains.size() + settings.countOr(30)),
          random_(random),
          report_(report)
    {}

    void atEveryCall()
    {
        Disk disk;
        for (std::size_t calls = 0; calls <= recording_.events.size(); ++calls)
        {
            for (std::uint64_t variant = 0; variant < variants_; ++variant)
                report_.judged(cutAndCheck(disk, calls, variant),
                               recording_.name + ", cut " + place(calls));
            if (calls < recording_.events.size())
                disk.play(recording_.events[calls]);
        }
    }

    /// A process is killed after each call, which leaves its changes in the memory of the machine;
    /// the next process changes an item, and then the power is cut: what the first one had not
    /// synced, the second must not build upon.
    void afterEveryKill()
    {
        Disk disk;
        for (std::size_t calls = 0; calls <= recording_.events.size(); ++calls)
        {
            report_.judged(killAndCut(disk, calls), recording_.name + ", killed " + place(calls));
            if (calls < recording_.events.size())
                disk.play(recording_.events[calls]);
        }
    }

    /// A run that never fails when a sync is gone would prove nothing about the ones that are
    /// there. So each is taken out, and each step must have one that is missed. Some are followed
    /// by another one of the same file or folder before anything depends on them; so all of one are
    /// taken out together, too, and what even then nothing depends on is told.
    std::string takeOutSyncs()
    {
        std::map<std::string, std::vector<std::size_t>> ofFile;
        std::map<std::string, std::vector<std::size_t>> ofStep;
        for (std::size_t call = 0; call < recording_.events.size(); ++call)
        {
            const auto& event = recording_.events[call];
            if (event.kind != FileCall::Kind::sync && event.kind != FileCall::Kind::syncFolder)
                continue;
            ofFile[shown(event)].push_back(call);
            ofStep[recording_.stepAt(call + 1)].push_back(call);
        }
        std::ptrdiff_t noticed = 0;
        std::size_t all = 0;
        for (const auto& [step, syncs] : ofStep)
        {
            const auto missed =
                std::ranges::count_if(syncs, [&](std::size_t sync) { return isNoticed({sync}); });
            noticed += missed;
            all += syncs.size();
            // What follows a step has nothing to acknowledge.
            const bool isIdle = missed == 0 && step.starts_with('"');
            report_.judged(isIdle ? "no sync is missed when taken out" : "",
                           recording_.name + ", " + step);
        }
        std::string idle;
        for (const auto& [file, syncs] : ofFile)
            if (!isNoticed(syncs))
                idle += (idle.empty() ? "; nothing depends on: " : ", ") + file;
        return std::to_string(noticed) + " of " + std::to_string(all) +
               " syncs are missed when taken out alone" + idle;
    }

    std::uint64_t images() const { return judged_.size(); }

private:
    /// Whether any cut is seen to go wrong when these syncs, in their order, never happen.
    bool isNoticed(const std::vector<std::size_t>& syncs)
    {
        // The search ends at the first, so that it may look closer.
        const auto variants = std::max<std::uint64_t>(variants_, plainRemains.size() + 12);
        const auto& last = recording_.events[syncs.back()];
        Disk disk;
        for (std::size_t call = 0; call < recording_.events.size(); ++call)
        {
            const auto& event = recording_.events[call];
            if (!std::ranges::binary_search(syncs, call))
                disk.play(event);
            if (call < syncs.front())
                continue;
            for (std::uint64_t variant = 0; variant < variants; ++variant)
                if (!cutAndCheck(disk, call + 1, variant).empty())
                    return true;
            // From the next sync of the same thing on, nothing is different.
            if (call > syncs.back() && event.kind == last.kind && event.path == last.path)
                return false;
        }
        return false;
    }

    std::string killAndCut(const Disk& atKill, std::size_t calls)
    {
        const TemporaryFolder folder;
        atKill.cut(Unsynced::kept, Unsynced::kept, random_).writeTo(folder.path());
        auto expectation = recording_.expectationAt(calls);
        auto store = recording_.place;
        store.folder = folder.path() / recording_.place.folder.filename();
        const auto log = std::make_shared<DiskLog>(folder.path());
        watchFiles(log);
        auto wrong = expectation.checkAnew(store, Below::watched);
        if (wrong.empty())
        {
            Store opened(store, Below::watched);
            wrong = expectation.carryOut({put, 5, 1000}, opened);
        }
        watchFiles(nullptr);
        if (!wrong.empty())
            return wrong;

        Disk disk(atKill);
        for (const auto& event : log->events())
            disk.play(event);
        for (std::uint64_t variant = 0; variant < variants_; ++variant)
        {
            wrong = cutAndCheck(disk, expectation, store, variant);
            if (!wrong.empty())
                return "then a put, then a power cut: " + wrong;
        }
        return {};
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
        return cutAndCheck(disk, recording_.expectationAt(calls), recording_.place, variant);
    }

    std::string cutAndCheck(const Disk& disk, Expectation expectation, Place store,
                            std::uint64_t variant)
    {
        const auto remains = variant < plainRemains.size() ? plainRemains[variant] : Remains();
        const auto image = disk.cut(remains.names, remains.data, random_);
        // Many cuts leave the same, and it was judged before.
        const auto [judged, isNew] =
            judged_.emplace(std::pair(image.hash(), expectation.text()), std::string());
        if (isNew)
        {
            const TemporaryFolder folder;
            image.writeTo(folder.path());
            store.folder = folder.path() / recording_.place.folder.filename();
            judged->second = expectation.checkAnew(store);
        }
        return judged->second.empty()
                   ? ""
                   : "remains " + std::to_string(variant) + ": " + judged->second;
    }

    const Recording& recording_;
    const std::uint64_t variants_;
    Random& random_;
    Report& report_;
    std::map<std::pair<std::size_t, std::string>, std::string> judged_;
};

}  // namespace

int runPowerCut(const Settings& settings)
{
    Report report("powercut", 0, settings.seed);
    Random random(settings.seed);
    for (const auto& recording : {Recording("key file", std::nullopt, everyStep),
                                  Recording("passphrase", 0, passphraseChanges)})
    {
        if (!recording.fault.empty())
        {
            report.failed(recording.name + ": " + recording.fault);
            continue;
        }
        PowerCut cut(recording, settings, random, report);
        cut.atEveryCall();
        cut.afterEveryKill();
        const auto syncs = cut.takeOutSyncs();
        std::cout << "powercut: " << recording.name << ": " << recording.events.size()
                  << " calls on the disk, " << cut.images() << " different disks, " << syncs
                  << std::endl;
    }
    return report.close({});
}

}  // namespace soak
