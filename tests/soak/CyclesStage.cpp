#include "tests/soak/CyclesStage.hpp"

#include "Platform/Basics/LocalizedError.hpp"

#include <boost/asio/post.hpp>

namespace soak
{

using namespace std::chrono_literals;

std::string CyclesCall::end() const
{
    if (ends != 1)
        return "ended " + std::to_string(ends) + " times";
    if (!error)
        return "succeeded";
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& thrown)
    {
        return std::string("threw ") + thrown.what();
    }
}

CyclesStage::CyclesStage()
    : elsewhere_(worker_.executor()), clock_(platform::systemClock(elsewhere_))
{}

bool CyclesStage::runUntil(const std::function<bool()>& holds, std::chrono::milliseconds limit)
{
    // In slices, for what holds may also change without a piece of work here.
    constexpr auto slice = 20ms;
    const auto end = std::chrono::steady_clock::now() + limit;
    bool held = holds();
    while (!held && std::chrono::steady_clock::now() < end)
    {
        const auto over = std::make_shared<bool>(false);
        const auto timer = platform::start<void>(
            platform::executorOf(loop_), clock_->sleep(std::chrono::nanoseconds(slice).count()),
            [over](const platform::Outcome<void>&) { *over = true; });
        loop_->runUntil([&] { return (held = holds()) || *over; });
        timer.cancel();
    }
    return held;
}

void CyclesStage::runFor(std::chrono::microseconds span)
{
    const auto over = std::make_shared<bool>(false);
    platform::start<void>(platform::executorOf(loop_),
                          clock_->sleep(std::chrono::nanoseconds(span).count()),
                          [over](const platform::Outcome<void>&) { *over = true; });
    loop_->runUntil([&] { return *over; });
}

void CyclesStage::drain(const platform::Executor& executor)
{
    const auto back = std::make_shared<bool>(false);
    boost::asio::post(executor, [back, loop = loop_] { loop->enqueue([back] { *back = true; }); });
    loop_->runUntil([&] { return *back; });
}

}  // namespace soak
