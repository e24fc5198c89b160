#include "tests/soak/Child.hpp"
#include "tests/soak/FileWatcher.hpp"
#include "tests/soak/Runs.hpp"

#include <sys/wait.h>
#include <algorithm>
#include <chrono>

namespace soak
{

using platform::KeychainStatus;

namespace
{

using Clock = std::chrono::steady_clock;

// What a store promises, and what a busy machine adds.
constexpr auto longestWait = std::chrono::milliseconds(5'000 + 2'000);

/// Stops the process in the middle of a write, with every lock that it takes for one.
class Stopper final : public FileWatcher
{
public:
    Fate before(const FileCall& call) override
    {
        if (call.kind == FileCall::Kind::sync && !stopped_)
        {
            stopped_ = true;
            raise(SIGSTOP);
        }
        return Fate::done;
    }

private:
    bool stopped_ = false;
};

/// Every operation against the stopped holder; what a reader is told may be right or an error.
std::string meetHolder(Store& store)
{
    struct Operation
    {
        const char* name;
        KeychainStatus (*run)(Store&);
        bool writes;
    };
    static constexpr Operation operations[]{
        {"a put", [](Store& one) { return one.put(keyAt(0), 2); }, true},
        {"a remove", [](Store& one) { return one.remove(keyAt(0)); }, true},
        {"a read", [](Store& one) { return one.get(keyAt(0)).status; }, false}};
    for (const auto& [name, run, writes] : operations)
    {
        const auto start = Clock::now();
        const auto status = run(store);
        const auto took =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        if (took > longestWait)
            return std::string(name) + " waited " + std::to_string(took.count()) + " ms";
        if (status == KeychainStatus::itemNotFound)
            return std::string(name) + " was told that there is no item";
        if (writes && status == KeychainStatus::success)
            return std::string(name) + " succeeded against the holder";
    }
    return {};
}

/// `end` wakes the holder or kills it; `possible` are the writes that may be there then.
std::string roundWithHolder(const Place& place, int end, const std::vector<std::uint64_t>& possible)
{
    Child holder(place.command("holder"));
    int state = 0;
    if (waitpid(holder.pid(), &state, WUNTRACED) != holder.pid() || !WIFSTOPPED(state))
        return "the holder did not stop: " + shownEnd(state);

    Store store(place);
    auto wrong = meetHolder(store);
    holder.signal(end);
    const auto ended = holder.wait();
    if (!wrong.empty())
        return wrong;
    if (end == SIGCONT && ended != 0)
        return "the holder could not go on: " + shownEnd(ended);

    const auto found = store.get(keyAt(0));
    if (found.status != KeychainStatus::success ||
        std::ranges::find(possible, found.number) == possible.end())
        return "afterwards a read gave " + shown(found.status) + ", " + shown(found.number);
    const auto status = store.put(keyAt(0), 4);
    return status == KeychainStatus::success ? "" : "afterwards a put gave " + shown(status);
}

}  // namespace

void meetStoppedHolder(const Place& place, Report& report)
{
    Store(place).put(keyAt(0), 4);
    report.judged(roundWithHolder(place, SIGCONT, {3}), "a stopped holder that goes on");
    report.judged(roundWithHolder(place, SIGKILL, {3, 4}), "a stopped holder that is killed");
}

/// Stops itself in the middle of a put.
int beHolder(const Settings& settings)
{
    Store store(settings.place, Below::watched);
    if (store.get(keyAt(0)).status != KeychainStatus::success)
        return 3;
    watchFiles(std::make_shared<Stopper>());
    return store.put(keyAt(0), 3) == KeychainStatus::success ? 0 : 3;
}

}  // namespace soak
