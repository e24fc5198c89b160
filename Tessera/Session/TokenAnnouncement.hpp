#pragma once

#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace tessera
{

/// Tells the user's other programs that the stored token has changed. It is ordered on the main
/// thread and carried out on the storage thread, because it writes a file: behind what the
/// keychain has just synced, that can take as long as the sync. Orders that wait are one.
class TokenAnnouncement
{
public:
    static constexpr const char* key = "net.ostra.account.token.touched";

    explicit TokenAnnouncement(
        std::unique_ptr<platform::UbiquitousKeyValueStore::Participant> participant)
        : participant_(std::move(participant))
    {}

    /// Waits for no write.
    void order(std::string moment)
    {
        const std::lock_guard lock(orderMutex_);
        ordered_ = std::move(moment);
    }

    /// False when it could not be made.
    bool carryOut()
    {
        const std::lock_guard lock(mutex_);
        const auto moment = takeOrder();
        if (moment.empty() || !participant_)
            return true;
        participant_->setString(moment, key);
        return participant_->synchronize();
    }

    /// Carries out what was ordered, and is silent from then on. For the main thread, where the
    /// participant was told of others.
    void end()
    {
        carryOut();
        const std::lock_guard lock(mutex_);
        participant_.reset();
    }

private:
    std::string takeOrder()
    {
        const std::lock_guard lock(orderMutex_);
        return std::exchange(ordered_, {});
    }

    std::mutex mutex_;
    std::unique_ptr<platform::UbiquitousKeyValueStore::Participant> participant_;
    std::mutex orderMutex_;
    std::string ordered_;
};

}  // namespace tessera
