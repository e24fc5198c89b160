#pragma once

#include "benchmarks/RawMulti.hpp"

#include <condition_variable>
#include <mutex>
#include <thread>

/// libcurl's multi interface on a thread of its own, as written by hand for a program whose main
/// thread wants the answers: a request goes over by `curl_multi_wakeup`, its answer comes back by a
/// condition variable. One in flight.
class RawWorker
{
public:
    explicit RawWorker(const std::string& address);
    ~RawWorker();

    /// Sends `count` requests, one after the other, and waits for each answer.
    void run(std::size_t count);

private:
    void request();
    void work();
    bool takeRequest();
    void giveAnswer();

    CURLM* multi_;
    RawTransfer transfer_;
    std::mutex mutex_;
    std::condition_variable answered_;
    bool asked_ = false;
    bool done_ = false;
    bool stopped_ = false;
    std::thread thread_;
};
