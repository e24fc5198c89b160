#include "benchmarks/RawWorker.hpp"

#include <utility>

RawWorker::RawWorker(const std::string& address)
    : multi_(curl_multi_init()), transfer_(address), thread_([this] { work(); })
{}

RawWorker::~RawWorker()
{
    {
        const std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    curl_multi_wakeup(multi_);
    thread_.join();
    curl_multi_cleanup(multi_);
}

void RawWorker::run(std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        request();
}

void RawWorker::request()
{
    std::unique_lock lock(mutex_);
    asked_ = true;
    lock.unlock();
    curl_multi_wakeup(multi_);
    lock.lock();
    answered_.wait(lock, [this] { return std::exchange(done_, false); });
}

void RawWorker::work()
{
    bool busy = false;
    for (;;)
    {
        if (!busy)
        {
            {
                const std::lock_guard lock(mutex_);
                if (stopped_)
                    return;
            }
            busy = takeRequest();
        }
        int running = 0;
        if (busy)
            curl_multi_perform(multi_, &running);
        if (busy && running == 0)
        {
            giveAnswer();
            busy = false;
        }
        curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
}

bool RawWorker::takeRequest()
{
    {
        const std::lock_guard lock(mutex_);
        if (!std::exchange(asked_, false))
            return false;
    }
    transfer_.prepare();
    curl_multi_add_handle(multi_, transfer_.handle());
    return true;
}

void RawWorker::giveAnswer()
{
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(multi_, &left);
    transfer_.check(message ? message->data.result : CURLE_GOT_NOTHING);
    curl_multi_remove_handle(multi_, transfer_.handle());
    {
        const std::lock_guard lock(mutex_);
        done_ = true;
    }
    answered_.notify_one();
}
