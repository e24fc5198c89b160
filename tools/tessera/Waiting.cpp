#include "tools/tessera/Waiting.hpp"

#include "Platform/Concurrency/CancellationError.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/shared/Terminal.hpp"

#include <unistd.h>

#include <cstdio>

namespace commandline
{

struct Waiting::Line
{
    std::string what;
    bool shown = false;

    void show(int seconds)
    {
        const auto time = seconds == 0 ? "" : " " + std::to_string(seconds) + " s";
        std::fprintf(stderr, "\r%s ...%s", what.c_str(), time.c_str());
        std::fflush(stderr);
        shown = true;
    }
    void clear() const
    {
        if (shown)
            std::fputs("\r\x1B[K", stderr);
    }

    static platform::Awaitable<void> count(std::shared_ptr<Line> line)
    {
        constexpr std::uint64_t halfSecond = 500'000'000;
        const auto clock = platform::services().clock;
        for (std::uint64_t halves = 1;; ++halves)
        {
            co_await clock->sleep(halfSecond);
            line->show(static_cast<int>(halves / 2));
        }
    }
};

Waiting::Waiting(std::shared_ptr<platform::RunLoop> loop, std::string what)
    : loop_(std::move(loop)), line_(std::make_shared<Line>())
{
    line_->what = std::move(what);
    if (isTerminal(STDERR_FILENO))
        task_ = platform::Task<void>::start(platform::executorOf(loop_), Line::count(line_));
}

Waiting::~Waiting()
{
    if (!task_)
        return;
    task_->cancel();
    loop_->runUntil([this] { return task_->finished(); });
    line_->clear();
}

}  // namespace commandline
