#include "Platform/KeyValueStore/FileKeyValueStore.hpp"

#include "Platform/Basics/UserFolder.hpp"
#include "Platform/KeyValueStore/KeyValueHub.hpp"
#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <map>
#include <utility>

namespace platform
{
namespace
{

/// One who takes part, and what it has not handed over yet.
class FileParticipant final : public UbiquitousKeyValueStore::Participant
{
public:
    FileParticipant(std::shared_ptr<KeyValueHub> hub, const Executor& executor,
                    UbiquitousKeyValueStore::Handler handler)
        : hub_(std::move(hub)), seat_(std::make_shared<KeyValueSeat>(executor, std::move(handler)))
    {
        hub_->join(seat_);
    }

    ~FileParticipant() override
    {
        hub_->leave(seat_);
        seat_->leave();
    }

    std::optional<std::string> string(std::string_view forKey) const override
    {
        const auto file = fileNameOfKey(forKey);
        if (!file)
            return std::nullopt;
        if (const auto found = unwritten_.find(*file); found != unwritten_.end())
            return found->second;
        return hub_->folder().read(*file);
    }

    void setString(std::string_view value, std::string_view forKey) override
    {
        const auto file = fileNameOfKey(forKey);
        if (!file)
            hub_->refuse("A key is empty or too long for a file name.", "Choose a shorter key.");
        else if (value.size() > SharedFolder::longestValue)
            hub_->refuse("The value of " + *file + " is longer than 1 KiB.", "Keep it elsewhere.");
        else
            unwritten_.insert_or_assign(*file, std::string(value));
    }

    bool synchronize() override
    {
        hub_->keepWatching();
        std::erase_if(unwritten_, [this](const auto& one)
                      { return hub_->write(one.first, one.second, seat_->writer()); });
        return unwritten_.empty();
    }

private:
    const std::shared_ptr<KeyValueHub> hub_;
    const std::shared_ptr<KeyValueSeat> seat_;
    /// Values by the names of their files.
    std::map<std::string, std::string> unwritten_;
};

}  // namespace

FileKeyValueStore::Configuration FileKeyValueStore::Configuration::ofUser()
{
    Configuration configuration;
    const auto state = userFolder("XDG_STATE_HOME", ".local/state");
    if (!state.empty())
        configuration.folder = state / "tessera" / "shared";
    return configuration;
}

FileKeyValueStore::FileKeyValueStore(const Executor& background, Configuration configuration)
    : hub_(std::make_shared<KeyValueHub>(background, std::move(configuration.folder),
                                         std::move(configuration.diagnostics)))
{}

FileKeyValueStore::~FileKeyValueStore() = default;

std::unique_ptr<UbiquitousKeyValueStore::Participant> FileKeyValueStore::join(
    const Executor& executor, Handler handler)
{
    return std::make_unique<FileParticipant>(hub_, executor, std::move(handler));
}

}  // namespace platform
