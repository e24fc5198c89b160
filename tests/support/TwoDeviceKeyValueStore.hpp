#pragma once

#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <array>
#include <cstddef>
#include <memory>

/// Two devices that share values over a network that a test moves by hand. Single-threaded.
///
/// A write is at once the value of its own device. What others are to hear of it waits, once for
/// each device, until it is delivered, which posts one call to each participant's executor, except
/// the writer's.
class TwoDeviceKeyValueStore
{
public:
    TwoDeviceKeyValueStore();
    TwoDeviceKeyValueStore(const TwoDeviceKeyValueStore&) = delete;
    TwoDeviceKeyValueStore& operator=(const TwoDeviceKeyValueStore&) = delete;

    /// What a program on the device (0 or 1) is given. It may outlive this object.
    std::shared_ptr<platform::UbiquitousKeyValueStore> device(std::size_t index) const;

    /// All that waits for either device, one by one. Whether there was anything.
    bool deliverAll();

private:
    class Device;

    std::array<std::shared_ptr<Device>, 2> devices_;
};
