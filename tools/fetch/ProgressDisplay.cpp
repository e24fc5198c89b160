#include "tools/fetch/ProgressDisplay.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/fetch/ProgressText.hpp"
#include "tools/shared/Terminal.hpp"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace fetch
{
namespace
{

using Steady = std::chrono::steady_clock;

int columns()
{
    constexpr int usual = 80;
    winsize size{};
    const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usual;
}

void print(const std::string& text)
{
    // Nobody can be told when standard error takes nothing; the transfer goes on.
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

constexpr auto lineBack = "\r\x1B[K";

}  // namespace

struct ProgressDisplay::State
{
    explicit State(Manner how) : manner(how) {}

    const Manner manner;
    std::shared_ptr<nettasks::AsyncURLSessionTaskProtocol> task;
    Steady::time_point begin = Steady::now();
    Milestones milestones;
    Counts refused;
    bool shown = false;

    Counts current() const
    {
        auto& progress = task->progress();
        return {progress.totalUnitCount(), progress.completedUnitCount()};
    }

    void tick()
    {
        if (!task || Steady::now() < begin)
            return;
        const auto counts = current();
        // Until the next attempt begins, they are those of the one that was refused.
        if (counts == refused && counts.completed > 0)
            return;
        if (manner == Manner::bar)
            showBar(counts);
        else if (const auto text = milestones.next(counts))
            print(*text + "\n");
    }

    void showBar(const Counts& counts)
    {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now() - begin);
        print(lineBack +
              progressLine(counts, elapsed, columns(), commandline::takesColours(STDERR_FILENO)));
        shown = true;
    }

    void clear()
    {
        if (shown)
            print(lineBack);
        shown = false;
    }

    static platform::Awaitable<void> tickForever(std::shared_ptr<State> state)
    {
        constexpr std::uint64_t tenth = 100'000'000;
        const auto clock = platform::services().clock;
        for (;;)
        {
            co_await clock->sleep(tenth);
            state->tick();
        }
    }
};

ProgressDisplay::Manner ProgressDisplay::suitable(bool json, bool quiet)
{
    if (quiet)
        return Manner::none;
    if (commandline::movesCursor(STDERR_FILENO))
        return Manner::bar;
    return json ? Manner::none : Manner::lines;
}

ProgressDisplay::ProgressDisplay(std::shared_ptr<platform::RunLoop> loop, Manner manner)
    : loop_(std::move(loop)), state_(std::make_shared<State>(manner))
{
    if (manner != Manner::none)
        task_ =
            platform::Task<void>::start(platform::executorOf(loop_), State::tickForever(state_));
}

ProgressDisplay::~ProgressDisplay()
{
    if (!task_)
        return;
    task_->cancel();
    loop_->runUntil([this] { return task_->finished(); });
    state_->clear();
}

void ProgressDisplay::follow(std::shared_ptr<nettasks::AsyncURLSessionTaskProtocol> task)
{
    state_->task = std::move(task);
    state_->begin = Steady::now();
}

void ProgressDisplay::wait(int status, double seconds, int attempt)
{
    if (state_->manner == Manner::none)
        return;
    state_->clear();
    state_->milestones.restart();
    state_->refused = state_->current();
    state_->begin = Steady::now() + std::chrono::duration_cast<Steady::duration>(
                                        std::chrono::duration<double>(seconds));
    print("The server answered " + std::to_string(status) + "; waiting " + secondsText(seconds) +
          " s before attempt " + std::to_string(attempt) + ".\n");
}

}  // namespace fetch
