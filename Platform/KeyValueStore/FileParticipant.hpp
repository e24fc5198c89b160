#pragma once

#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <map>

namespace platform
{

class KeyValueHub;
class KeyValueSeat;

/// One who takes part in a `FileKeyValueStore`, and what it has not handed over yet.
class FileParticipant final : public UbiquitousKeyValueStore::Participant
{
public:
    FileParticipant(std::shared_ptr<KeyValueHub> hub, const Executor& executor,
                    UbiquitousKeyValueStore::Handler handler);
    ~FileParticipant() override;

    std::optional<std::string> string(std::string_view forKey) const override;
    void setString(std::string_view value, std::string_view forKey) override;
    bool synchronize() override;

private:
    const std::shared_ptr<KeyValueHub> hub_;
    const std::shared_ptr<KeyValueSeat> seat_;
    /// Values by the names of their files.
    std::map<std::string, std::string> unwritten_;
};

}  // namespace platform
