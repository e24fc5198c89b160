#pragma once

#include "tools/shared/Event.hpp"
#include "tools/shared/Interrupts.hpp"

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace commandline
{

/// Runs what blocks (a disk, another process, the derivation of a key) on a thread of its own. The
/// main thread meanwhile tells a person at a terminal what is waited for, and listens for Ctrl-C.
class BlockingWork
{
public:
    /// Called after a signal; ends the process: what blocks cannot be called off, and a keychain
    /// may be left at any instant.
    using Abandon = std::function<void()>;

    BlockingWork(Interrupts& interrupts, Abandon abandon);
    ~BlockingWork();
    BlockingWork(const BlockingWork&) = delete;
    BlockingWork& operator=(const BlockingWork&) = delete;

    /// Called from the main thread; throws what the work throws.
    template <class T>
    T run(const std::string& what, std::function<T()> work)
    {
        std::packaged_task<T()> task(std::move(work));
        const Event ended;
        auto outcome = task.get_future();
        std::jthread thread(
            [&task, &ended]
            {
                task();
                ended.happen();
            });
        waitFor(ended, what);
        // Its end, and not the outcome's alone: what it held is gone before the process is.
        thread.join();
        return outcome.get();
    }

    /// While one lives, a question to the user has the terminal.
    class Question
    {
    public:
        explicit Question(BlockingWork& work);
        ~Question();
        Question(const Question&) = delete;
        Question& operator=(const Question&) = delete;

    private:
        std::unique_lock<std::mutex> terminal_;
    };

private:
    class Line;

    void waitFor(const Event& ended, const std::string& what);

    Interrupts& interrupts_;
    const Abandon abandon_;
    const std::unique_ptr<Line> line_;
};

}  // namespace commandline
