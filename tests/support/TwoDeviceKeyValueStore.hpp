#pragma once

#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <array>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Two devices that share values over a network that a test moves by hand. Single-threaded.
///
/// A write is at once the value of its own device. What others are to hear of it waits, once for
/// each device, until a step names it: not delivering is delay, an index other than the first is a
/// change of order. A delivery posts one call to each participant's executor, except the writer's;
/// the value that is newest by the order of writing stays, whatever arrives last.
class TwoDeviceKeyValueStore
{
public:
    static constexpr std::size_t devices = 2;

    TwoDeviceKeyValueStore();
    ~TwoDeviceKeyValueStore();
    TwoDeviceKeyValueStore(const TwoDeviceKeyValueStore&) = delete;
    TwoDeviceKeyValueStore& operator=(const TwoDeviceKeyValueStore&) = delete;

    /// What a program on the device (0 or 1) is given. It may outlive this object.
    std::shared_ptr<platform::UbiquitousKeyValueStore> device(std::size_t index) const;

    /// How many announcements wait for the device.
    std::size_t waiting(std::size_t device) const;

    /// Each step returns false where nothing waits under the index.
    bool deliver(std::size_t device, std::size_t index = 0);
    /// Two deliveries will come of it; the second one waits behind all others.
    bool duplicate(std::size_t device, std::size_t index = 0);
    /// The value arrives, and nobody is told.
    bool lose(std::size_t device, std::size_t index = 0);
    /// All that waits, in one call for each participant. A writer is told of what others wrote.
    bool deliverMerged(std::size_t device);
    /// All that waits for either device, one by one.
    void deliverAll();

    /// While set, `synchronize` on the device hands nothing over.
    void setOffline(std::size_t device, bool offline);

private:
    class Device;
    class Participant;
    class End;
    struct Write;
    struct Network;

    const std::shared_ptr<Network> network_;
};
