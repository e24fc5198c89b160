#include "tools/tessera/keychain/BlockingWork.hpp"

#include "tools/shared/Terminal.hpp"

#include <poll.h>

#include <chrono>
#include <cstdio>

namespace commandline
{

/// The line that says what is waited for; whoever writes on the terminal holds the mutex.
class BlockingWork::Line
{
public:
    std::mutex terminal;

    void show(const std::string& what, std::chrono::seconds time)
    {
        const auto seconds = time.count() == 0 ? "" : " " + std::to_string(time.count()) + " s";
        std::fprintf(stderr, "\r%s ...%s", what.c_str(), seconds.c_str());
        std::fflush(stderr);
        shown_ = true;
    }
    void clear()
    {
        if (std::exchange(shown_, false))
            std::fputs("\r\x1B[K", stderr);
    }

private:
    bool shown_ = false;
};

BlockingWork::Question::Question(BlockingWork& work) : terminal_(work.line_->terminal)
{
    work.line_->clear();
}

BlockingWork::Question::~Question() = default;

BlockingWork::BlockingWork(Interrupts& interrupts, Abandon abandon)
    : interrupts_(interrupts), abandon_(std::move(abandon)), line_(std::make_unique<Line>())
{}

BlockingWork::~BlockingWork() = default;

void BlockingWork::waitFor(const Event& ended, const std::string& what)
{
    using namespace std::chrono;
    constexpr int halfSecond = 500;
    const auto start = steady_clock::now();
    pollfd waiting[] = {{ended.descriptor(), POLLIN, 0}, {interrupts_.descriptor(), POLLIN, 0}};
    while (waiting[0].revents == 0)
    {
        const int ready = ::poll(waiting, 2, halfSecond);
        if (waiting[1].revents != 0)
        {
            // A question ends with the same signal, and gives the terminal back as it was.
            const std::lock_guard terminal(line_->terminal);
            line_->clear();
            abandon_();
        }
        const std::unique_lock terminal(line_->terminal, std::try_to_lock);
        if (ready == 0 && terminal && isTerminal(2))
            line_->show(what, duration_cast<seconds>(steady_clock::now() - start));
    }
    const std::lock_guard terminal(line_->terminal);
    line_->clear();
}

}  // namespace commandline
