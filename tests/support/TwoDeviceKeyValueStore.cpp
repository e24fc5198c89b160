#include "tests/support/TwoDeviceKeyValueStore.hpp"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <utility>

using Store = platform::UbiquitousKeyValueStore;

struct TwoDeviceKeyValueStore::Write
{
    std::uint64_t number;
    std::uint64_t writer;
    const Device* origin;
    std::string key;
    std::string value;
};

class TwoDeviceKeyValueStore::Device
{
public:
    void apply(const Write& write)
    {
        auto& known = values[write.key];
        if (write.number >= known.first)
            known = {write.number, write.value};
    }

    void tell(const std::vector<Write>& writes) const;

    std::map<std::string, std::pair<std::uint64_t, std::string>> values;
    std::deque<Write> waiting;
    std::vector<Participant*> participants;
    bool offline = false;
};

struct TwoDeviceKeyValueStore::Network
{
    Write take(std::size_t device, std::size_t index)
    {
        auto& queue = devices.at(device).waiting;
        auto taken = std::move(queue[index]);
        queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(index));
        return taken;
    }

    std::array<Device, TwoDeviceKeyValueStore::devices> devices;
    std::uint64_t writes = 0;
    std::uint64_t participants = 0;
};

class TwoDeviceKeyValueStore::Participant final : public Store::Participant
{
public:
    Participant(std::shared_ptr<Network> network, std::size_t device,
                const platform::Executor& executor, Store::Handler handler)
        : network_(std::move(network)),
          device_(network_->devices.at(device)),
          number_(++network_->participants),
          writesBefore_(network_->writes),
          executor_(executor),
          handler_(std::make_shared<Store::Handler>(std::move(handler)))
    {
        device_.participants.push_back(this);
    }

    ~Participant() override { std::erase(device_.participants, this); }

    std::optional<std::string> string(std::string_view forKey) const override
    {
        const std::string key(forKey);
        if (const auto own = unwritten_.find(key); own != unwritten_.end())
            return own->second;
        const auto found = device_.values.find(key);
        return found == device_.values.end() ? std::nullopt : std::optional(found->second.second);
    }

    void setString(std::string_view value, std::string_view forKey) override
    {
        unwritten_[std::string(forKey)] = value;
    }

    bool synchronize() override
    {
        if (device_.offline)
            return unwritten_.empty();
        for (auto& [key, value] : std::exchange(unwritten_, {}))
        {
            const Write write{++network_->writes, number_, &device_, key, value};
            device_.apply(write);
            for (auto& device : network_->devices)
                device.waiting.push_back(write);
        }
        return true;
    }

    /// Not its own, nor what was there when it joined.
    bool isNews(const Write& write) const
    {
        return write.writer != number_ &&
               (write.origin != &device_ || write.number > writesBefore_);
    }

    void tell(std::vector<std::string> keys) const
    {
        boost::asio::post(
            executor_,
            [held = std::weak_ptr(handler_), change = platform::ExternalKeyValueChange{keys}]
            {
                if (const auto handler = held.lock())
                    (*handler)(change);
            });
    }

private:
    const std::shared_ptr<Network> network_;
    Device& device_;
    const std::uint64_t number_;
    const std::uint64_t writesBefore_;
    const platform::Executor executor_;
    const std::shared_ptr<Store::Handler> handler_;
    std::map<std::string, std::string> unwritten_;
};

void TwoDeviceKeyValueStore::Device::tell(const std::vector<Write>& writes) const
{
    for (const auto* participant : participants)
    {
        std::vector<std::string> keys;
        for (const auto& write : writes)
            if (participant->isNews(write) && std::ranges::find(keys, write.key) == keys.end())
                keys.push_back(write.key);
        if (!keys.empty())
            participant->tell(std::move(keys));
    }
}

class TwoDeviceKeyValueStore::End final : public Store
{
public:
    End(std::shared_ptr<Network> network, std::size_t device)
        : network_(std::move(network)), device_(device)
    {}

    std::unique_ptr<Store::Participant> join(const platform::Executor& executor,
                                             Handler handler) override
    {
        return std::make_unique<TwoDeviceKeyValueStore::Participant>(network_, device_, executor,
                                                                     std::move(handler));
    }

private:
    const std::shared_ptr<Network> network_;
    const std::size_t device_;
};

TwoDeviceKeyValueStore::TwoDeviceKeyValueStore() : network_(std::make_shared<Network>()) {}

TwoDeviceKeyValueStore::~TwoDeviceKeyValueStore() = default;

std::shared_ptr<Store> TwoDeviceKeyValueStore::device(std::size_t index) const
{
    return std::make_shared<End>(network_, index);
}

std::size_t TwoDeviceKeyValueStore::waiting(std::size_t device) const
{
    return network_->devices.at(device).waiting.size();
}

bool TwoDeviceKeyValueStore::deliver(std::size_t device, std::size_t index)
{
    if (index >= waiting(device))
        return false;
    const auto write = network_->take(device, index);
    network_->devices.at(device).apply(write);
    network_->devices.at(device).tell({write});
    return true;
}

bool TwoDeviceKeyValueStore::duplicate(std::size_t device, std::size_t index)
{
    if (index >= waiting(device))
        return false;
    auto& queue = network_->devices.at(device).waiting;
    queue.push_back(Write(queue[index]));
    return true;
}

bool TwoDeviceKeyValueStore::lose(std::size_t device, std::size_t index)
{
    if (index >= waiting(device))
        return false;
    network_->devices.at(device).apply(network_->take(device, index));
    return true;
}

bool TwoDeviceKeyValueStore::deliverMerged(std::size_t device)
{
    auto& receiver = network_->devices.at(device);
    const auto all = std::exchange(receiver.waiting, {});
    for (const auto& write : all)
        receiver.apply(write);
    receiver.tell({all.begin(), all.end()});
    return !all.empty();
}

void TwoDeviceKeyValueStore::deliverAll()
{
    for (std::size_t device = 0; device < devices; ++device)
        while (deliver(device))
        {
        }
}

void TwoDeviceKeyValueStore::setOffline(std::size_t device, bool offline)
{
    network_->devices.at(device).offline = offline;
}
