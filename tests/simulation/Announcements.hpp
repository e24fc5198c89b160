#pragma once

#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace simulation
{

/// The key-value store of one user on several machines: what one writes reaches the others when a
/// seed says so, twice, or never.
class Announcements
{
public:
    /// Called at each hand-over, with the host that made it.
    explicit Announcements(std::function<void(int host)> onSynchronize)
        : onSynchronize_(std::move(onSynchronize))
    {}

    /// What `host` joins.
    std::shared_ptr<platform::UbiquitousKeyValueStore> storeOf(int host);

    /// Who has news that it was not told of.
    std::vector<int> awaited() const;

    enum class Delivery
    {
        once,
        again,
        lost,
        withoutKeys,
        ofAnotherKey
    };
    void deliver(int host, Delivery delivery);

    /// The next hand-over of this host says that it could not be made.
    void failNext(int host) { failing_.insert(host); }

private:
    class Member;
    class Store;

    const std::function<void(int)> onSynchronize_;
    std::map<std::string, std::string, std::less<>> values_;
    std::map<int, Member*> members_;
    std::set<int> failing_;
};

}  // namespace simulation
