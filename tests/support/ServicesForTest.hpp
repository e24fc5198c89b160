#pragma once

#include "Platform/Services/Services.hpp"
#include "tests/support/FixedDevice.hpp"
#include "tests/support/ManualClock.hpp"

/// Puts a fixed device and a manual clock into the process-wide services for the length of a test.
struct ServicesForTest
{
    std::shared_ptr<FixedDevice> device = std::make_shared<FixedDevice>();
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();

    ServicesForTest()
    {
        auto replaced = platform::systemServices();
        replaced.device = device;
        replaced.clock = clock;
        before_ = platform::replaceServices(replaced);
    }
    ~ServicesForTest() { platform::replaceServices(before_); }
    ServicesForTest(const ServicesForTest&) = delete;
    ServicesForTest& operator=(const ServicesForTest&) = delete;

private:
    platform::Services before_;
};
