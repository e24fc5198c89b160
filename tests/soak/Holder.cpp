#include "tests/soak/Holder.hpp"

#include "tests/soak/Child.hpp"
#include "tests/soak/Expectation.hpp"
#include "tests/soak/Runs.hpp"
#include "tests/soak/WatchedVFS.hpp"

#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <csignal>

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
std::string meetHolder(Items& items)
{
    struct Operation
    {
        const char* name;
        KeychainStatus (*run)(Items&);
        bool writes;
    };
    static constexpr Operation operations[]{
        {"a put", [](Items& one) { return one.put(keyAt(0), 2); }, true},
        {"a remove", [](Items& one) { return one.remove(keyAt(0)); }, true},
        {"a read", [](Items& one) { return one.get(keyAt(0)).status; }, false}};
    for (const auto& [name, run, writes] : operations)
    {
        const auto start = Clock::now();
        const auto status = run(items);
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
std::string roundWithHolder(const Place& place, int end, std::vector<std::uint64_t> possible)
{
    auto arguments = place.arguments();
    arguments.insert(arguments.begin(), "holder");
    Child holder(arguments);
    int state = 0;
    if (waitpid(holder.pid(), &state, WUNTRACED) != holder.pid() || !WIFSTOPPED(state))
        return "the holder did not stop: " + shownEnd(state);

    const auto store = openStore(place);
    Items items(store->items());
    auto wrong = meetHolder(items);
    holder.signal(end);
    const auto ended = holder.wait();
    if (!wrong.empty())
        return wrong;
    if (end == SIGCONT && ended != 0)
        return "the holder could not go on: " + shownEnd(ended);

    const auto found = items.get(keyAt(0));
    if (found.status != KeychainStatus::success ||
        std::ranges::find(possible, found.number) == possible.end())
        return "afterwards a read gave " + shown(found.status) + ", " + shown(found.number);
    const auto status = items.put(keyAt(0), 4);
    return status == KeychainStatus::success ? "" : "afterwards a put gave " + shown(status);
}

}  // namespace

void meetStoppedHolder(const Place& place, Report& report)
{
    {
        const auto store = openStore(place);
        Items(store->items()).put(keyAt(0), 4);
    }
    struct Round
    {
        const char* name;
        int signal;
        std::vector<std::uint64_t> possible;
    };
    for (const auto& [name, signal, possible] :
         {Round{"a stopped holder that goes on", SIGCONT, {3}},
          Round{"a stopped holder that is killed", SIGKILL, {3, 4}}})
    {
        const auto wrong = roundWithHolder(place, signal, possible);
        if (wrong.empty())
            report.passed();
        else
            report.failed(std::string(name) + ": " + wrong);
    }
}

/// Stops itself in the middle of a put.
int beHolder(const Place& place)
{
    const auto store = openStore(place, Below::watched);
    Items items(store->items());
    if (items.get(keyAt(0)).status != KeychainStatus::success)
        return 3;
    watchFiles(std::make_shared<Stopper>());
    return items.put(keyAt(0), 3) == KeychainStatus::success ? 0 : 3;
}

}  // namespace soak
