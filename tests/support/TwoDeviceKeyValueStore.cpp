#include "tests/support/TwoDeviceKeyValueStore.hpp"

#include <boost/asio/post.hpp>

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

using Store = platform::UbiquitousKeyValueStore;

class TwoDeviceKeyValueStore::Device final : public Store,
                                             public std::enable_shared_from_this<Device>
{
public:
    class Participant;
    struct Write
    {
        std::weak_ptr<Handler> writer;
        std::string key, value;
        std::size_t number = 0;  ///< of this device's own, from 1 on
    };

    std::unique_ptr<Store::Participant> join(const platform::Executor& executor,
                                             Handler handler) override;
    void write(Write write)
    {
        values[write.key] = write.value;
        if (const auto elsewhere = other.lock())
            elsewhere->waiting.push_back(write);
        write.number = ++written;
        waiting.push_back(std::move(write));
    }
    bool deliver();

    std::weak_ptr<Device> other;
    std::map<std::string, std::string> values;
    std::deque<Write> waiting;
    std::size_t written = 0;
    std::vector<const Participant*> participants;
};

class TwoDeviceKeyValueStore::Device::Participant final : public Store::Participant
{
public:
    Participant(std::shared_ptr<Device> device, platform::Executor executor, Handler handler)
        : device_(std::move(device)),
          executor_(std::move(executor)),
          handler_(std::make_shared<Handler>(std::move(handler)))
    {
        device_->participants.push_back(this);
    }
    ~Participant() override { std::erase(device_->participants, this); }

    std::optional<std::string> string(std::string_view forKey) const override
    {
        const std::string key(forKey);
        if (const auto own = unwritten_.find(key); own != unwritten_.end())
            return own->second;
        const auto found = device_->values.find(key);
        return found == device_->values.end() ? std::nullopt : std::optional(found->second);
    }

    void setString(std::string_view value, std::string_view forKey) override
    {
        unwritten_[std::string(forKey)] = value;
    }

    bool synchronize() override
    {
        for (const auto& [key, value] : std::exchange(unwritten_, {}))
            device_->write({handler_, key, value});
        return true;
    }

    /// Not of its own writes, nor of what was there when it joined.
    void tell(const Write& write) const
    {
        if (write.writer.lock() == handler_ || (write.number > 0 && write.number <= writtenBefore_))
            return;
        boost::asio::post(executor_,
                          [held = std::weak_ptr(handler_),
                           change = platform::ExternalKeyValueChange{{{write.key}}}]
                          {
                              if (const auto handler = held.lock())
                                  (*handler)(change);
                          });
    }

private:
    const std::shared_ptr<Device> device_;
    const std::size_t writtenBefore_ = device_->written;
    const platform::Executor executor_;
    const std::shared_ptr<Handler> handler_;
    std::map<std::string, std::string> unwritten_;
};

std::unique_ptr<Store::Participant> TwoDeviceKeyValueStore::Device::join(
    const platform::Executor& executor, Handler handler)
{
    return std::make_unique<Participant>(shared_from_this(), executor, std::move(handler));
}

bool TwoDeviceKeyValueStore::Device::deliver()
{
    if (waiting.empty())
        return false;
    const auto write = std::move(waiting.front());
    waiting.pop_front();
    values[write.key] = write.value;
    for (const auto* participant : participants)
        participant->tell(write);
    return true;
}

TwoDeviceKeyValueStore::TwoDeviceKeyValueStore()
    : devices_{std::make_shared<Device>(), std::make_shared<Device>()}
{
    devices_[0]->other = devices_[1];
    devices_[1]->other = devices_[0];
}

std::shared_ptr<Store> TwoDeviceKeyValueStore::device(std::size_t index) const
{
    return devices_.at(index);
}

bool TwoDeviceKeyValueStore::deliverAll()
{
    bool any = false;
    for (const auto& device : devices_)
        while (device->deliver())
            any = true;
    return any;
}
