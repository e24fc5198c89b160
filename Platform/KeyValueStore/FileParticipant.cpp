#include "Platform/KeyValueStore/FileParticipant.hpp"

#include "Platform/KeyValueStore/KeyValueHub.hpp"
#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <utility>

namespace platform
{

FileParticipant::FileParticipant(std::shared_ptr<KeyValueHub> hub, const Executor& executor,
                                 UbiquitousKeyValueStore::Handler handler)
    : hub_(std::move(hub)), seat_(std::make_shared<KeyValueSeat>(executor, std::move(handler)))
{
    hub_->join(seat_);
}

FileParticipant::~FileParticipant()
{
    hub_->leave(seat_);
    seat_->leave();
}

std::optional<std::string> FileParticipant::string(std::string_view forKey) const
{
    const auto file = fileNameOfKey(forKey);
    if (!file)
        return std::nullopt;
    if (const auto found = unwritten_.find(*file); found != unwritten_.end())
        return found->second;
    return hub_->folder().read(*file);
}

void FileParticipant::setString(std::string_view value, std::string_view forKey)
{
    const auto file = fileNameOfKey(forKey);
    if (!file)
        hub_->refuse("A key is empty or too long for a file name.", "Choose a shorter key.");
    else if (value.size() > SharedFolder::longestValue)
        hub_->refuse("The value of " + *file + " is longer than 1 KiB.", "Keep it elsewhere.");
    else
        unwritten_.insert_or_assign(*file, std::string(value));
}

bool FileParticipant::synchronize()
{
    hub_->keepWatching();
    std::erase_if(unwritten_, [this](const auto& one)
                  { return hub_->write(one.first, one.second, seat_->writer()); });
    return unwritten_.empty();
}

}  // namespace platform
