#include "tools/conformance/Worker.hpp"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <list>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

namespace conformance
{
namespace
{

using Clock = std::chrono::steady_clock;

/// A verdict on its way: these numbers and then the two texts.
struct Head
{
    std::uint32_t outcome;
    std::uint32_t expectedSize;
    std::uint32_t foundSize;
};

/// Longer than any text of a verdict; more is the nonsense of a child that lost its wits.
constexpr std::uint32_t longestText = 1 << 16;

Verdict judged(const Case& each)
{
    constexpr auto anAnswer = "an answer or the error for it";
    try
    {
        return each.judge->judge(*each.record, *each.meta);
    }
    catch (const std::exception& error)
    {
        return Verdict::failed(anAnswer, std::string("the error ") + error.what());
    }
    catch (...)
    {
        return Verdict::failed(anAnswer, "an unknown error");
    }
}

void writeAll(int output, const void* data, std::size_t size)
{
    const char* next = static_cast<const char*>(data);
    while (size > 0)
    {
        const ssize_t written = ::write(output, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            ::_exit(1);
        next += written;
        size -= static_cast<std::size_t>(written);
    }
}

[[noreturn]] void work(std::span<const Case> cases, int output)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    // Standard output belongs to the report.
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    for (const Case& each : cases)
    {
        const Verdict verdict = judged(each);
        const Head head{static_cast<std::uint32_t>(verdict.outcome),
                        static_cast<std::uint32_t>(verdict.expected.size()),
                        static_cast<std::uint32_t>(verdict.found.size())};
        std::string message(reinterpret_cast<const char*>(&head), sizeof head);
        message += verdict.expected + verdict.found;
        writeAll(output, message.data(), message.size());
    }
    // Whatever else lives in this copy of the process is not for it to end.
    ::_exit(0);
}

[[noreturn]] void throwError(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

/// The child process that judges `cases`. It ends with this object.
class Worker
{
public:
    explicit Worker(std::span<const Case> cases)
    {
        std::array<int, 2> ends;
        if (::pipe(ends.data()) != 0)
            throwError("pipe");
        std::fflush(nullptr);
        child_ = ::fork();
        if (child_ == 0)
        {
            ::close(ends[0]);
            work(cases, ends[1]);
        }
        ::close(ends[1]);
        input_ = ends[0];
        if (child_ < 0)
        {
            ::close(input_);
            throwError("fork");
        }
    }
    ~Worker()
    {
        if (child_ > 0)
            end();
        ::close(input_);
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Where its verdicts come from.
    int input() const { return input_; }

    /// The next verdict; nothing when there comes none in time.
    std::optional<Verdict> next(Clock::time_point deadline)
    {
        Head head;
        if (!read(&head, sizeof head, deadline) || head.expectedSize > longestText ||
            head.foundSize > longestText || head.outcome > 2)
            return std::nullopt;
        Verdict verdict;
        verdict.outcome = static_cast<Verdict::Outcome>(head.outcome);
        verdict.expected.resize(head.expectedSize);
        verdict.found.resize(head.foundSize);
        if (!read(verdict.expected.data(), head.expectedSize, deadline) ||
            !read(verdict.found.data(), head.foundSize, deadline))
            return std::nullopt;
        return verdict;
    }

    /// Ends the child and tells how it went, for a child that gave no verdict.
    std::string end()
    {
        ::kill(child_, SIGKILL);
        int status = 0;
        while (::waitpid(child_, &status, 0) < 0 && errno == EINTR)
        {
        }
        child_ = 0;
        if (wasLate_)
            return "no answer in time";
        if (WIFSIGNALED(status))
            return std::string("a crash: ") + ::strsignal(WTERMSIG(status));
        return "the process ended with status " + std::to_string(WEXITSTATUS(status));
    }

private:
    bool read(void* data, std::size_t size, Clock::time_point deadline)
    {
        char* next = static_cast<char*>(data);
        while (size > 0)
        {
            if (!wait(deadline))
                return false;
            const ssize_t count = ::read(input_, next, size);
            if (count < 0 && errno == EINTR)
                continue;
            if (count <= 0)
                return false;
            next += count;
            size -= static_cast<std::size_t>(count);
        }
        return true;
    }

    bool wait(Clock::time_point deadline)
    {
        for (;;)
        {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd poll{input_, POLLIN, 0};
            const int ready = ::poll(&poll, 1, std::max(0, static_cast<int>(left.count())));
            if (ready > 0)
                return true;
            wasLate_ = ready == 0;
            if (wasLate_ || errno != EINTR)
                return false;
        }
    }

    pid_t child_ = 0;
    int input_ = -1;
    bool wasLate_ = false;
};

/// Cases that one child at a time is at.
class Lane
{
public:
    Lane(std::span<const Case> cases, std::size_t begin, std::size_t end,
         std::chrono::milliseconds limit)
        : cases_(cases), at_(begin), end_(end), limit_(limit)
    {
        start();
    }

    bool isDone() const { return at_ == end_; }
    int input() const { return worker_->input(); }
    Clock::time_point deadline() const { return deadline_; }

    /// Takes the next verdict, which has come or is late.
    void step(const std::function<void(std::size_t, Verdict)>& take)
    {
        auto verdict = worker_->next(deadline_);
        const bool lives = verdict.has_value();
        take(at_++, lives ? std::move(*verdict)
                          : Verdict::failed("an answer within the time limit", worker_->end()));
        deadline_ = Clock::now() + limit_;
        if (!lives && !isDone())
            start();
    }

private:
    void start()
    {
        worker_ = std::make_unique<Worker>(cases_.subspan(at_, end_ - at_));
        deadline_ = Clock::now() + limit_;
    }

    std::span<const Case> cases_;
    std::size_t at_;
    std::size_t end_;
    std::chrono::milliseconds limit_;
    std::unique_ptr<Worker> worker_;
    Clock::time_point deadline_;
};

using Lanes = std::list<Lane>;

/// The lane that has something to say, or whose time is up first when none has.
Lanes::iterator nextOf(Lanes& lanes)
{
    const auto first = std::ranges::min_element(lanes, {}, &Lane::deadline);
    std::vector<pollfd> polls;
    for (const Lane& lane : lanes)
        polls.push_back({lane.input(), POLLIN, 0});
    for (;;)
    {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(first->deadline() - Clock::now());
        const int ready =
            ::poll(polls.data(), polls.size(), std::max(0, static_cast<int>(left.count())));
        if (ready == 0 || (ready < 0 && errno != EINTR))
            return first;
        for (auto lane = lanes.begin(); ready > 0 && lane != lanes.end(); ++lane)
            if (polls[static_cast<std::size_t>(std::distance(lanes.begin(), lane))].revents != 0)
                return lane;
    }
}

}  // namespace

void judgeApart(std::span<const Case> cases, std::size_t atOnce, std::chrono::milliseconds limit,
                const std::function<void(std::size_t, Verdict)>& take)
{
    const std::size_t piece = atOnce > 1 ? 1 : cases.size();
    std::size_t at = 0;
    Lanes lanes;
    while (at < cases.size() || !lanes.empty())
    {
        for (; lanes.size() < atOnce && at < cases.size(); at += piece)
            lanes.emplace_back(cases, at, at + piece, limit);
        const auto lane = nextOf(lanes);
        lane->step(take);
        if (lane->isDone())
            lanes.erase(lane);
    }
}

}  // namespace conformance
