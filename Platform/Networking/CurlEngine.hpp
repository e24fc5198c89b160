#pragma once

#include "Platform/Networking/CurlLoop.hpp"
#include "Platform/Networking/CurlOptions.hpp"
#include "Platform/Networking/CurlTask.hpp"
#include "Platform/Networking/CurlTransfer.hpp"

#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace platform
{

/// The thread behind a `CurlURLSession`. Other threads leave tasks at its door and wake it when it
/// may be asleep; everything of libcurl happens on it, and so does every completion.
///
/// It is owned by the session, by its tasks and by its own thread; the session stops it.
class CurlEngine final : public std::enable_shared_from_this<CurlEngine>
{
public:
    explicit CurlEngine(CurlURLSession::Configuration configuration);
    CurlEngine(const CurlEngine&) = delete;
    CurlEngine& operator=(const CurlEngine&) = delete;
    ~CurlEngine();

    /// Runs the task to its completion. After `stop` it is cancelled on the spot.
    void start(std::shared_ptr<CurlTask> task);

    /// Ends the task if it runs.
    void cancel(std::shared_ptr<CurlTask> task);

    /// Cancels all tasks and waits for the thread to end, unless it is the calling one.
    void stop();

private:
    using Tasks = std::vector<std::shared_ptr<CurlTask>>;
    using Transfers = std::vector<std::unique_ptr<CurlTransfer>>;
    using Finished = std::vector<std::pair<std::shared_ptr<CurlTask>, URLCompletion>>;

    bool leave(Tasks& door, std::shared_ptr<CurlTask> task);
    void startLoop();
    void wake() const;

    // On the thread.
    void run(CurlLoop& loop);
    bool takeTasks();
    bool maySleep();
    void begin(const std::shared_ptr<CurlTask>& task);
    void launch(const std::shared_ptr<CurlTask>& task);
    void end(const CurlTask& task);
    void endAll();
    void collectResults();
    void finish(CurlTransfer& transfer, URLCompletion completion);
    void tellFinished();

    const CurlOptions options_;
    const int wakeDescriptor_;

    std::mutex mutex_;
    Tasks starting_;
    Tasks ending_;
    bool asleep_ = false;
    bool stopped_ = false;

    std::mutex joinMutex_;
    std::thread thread_;

    // The thread's own.
    CurlLoop* loop_ = nullptr;
    Tasks toStart_;
    Tasks toEnd_;
    Transfers running_;
    Transfers spare_;
    Finished finished_;
    Finished told_;
};

}  // namespace platform
