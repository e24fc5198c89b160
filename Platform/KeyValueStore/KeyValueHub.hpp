#pragma once

#include "Platform/KeyValueStore/FolderWatch.hpp"
#include "Platform/KeyValueStore/SharedFolder.hpp"
#include "Platform/KeyValueStore/UbiquitousKeyValueStore.hpp"

#include <boost/asio/posix/stream_descriptor.hpp>

#include <array>
#include <mutex>
#include <set>

namespace platform
{

/// Where one who takes part is told: on `executor`, one waiting call at most.
class KeyValueSeat : public std::enable_shared_from_this<KeyValueSeat>
{
public:
    KeyValueSeat(const Executor& executor, UbiquitousKeyValueStore::Handler handler);

    const std::string& writer() const noexcept { return writer_; }

    void changed(const std::string& key);

    /// No call from now on; to be called where the handler is.
    void leave();

private:
    void tell();

    const std::string writer_;
    const Executor executor_;
    /// Both belong to the executor.
    std::shared_ptr<const UbiquitousKeyValueStore::Handler> handler_;

    std::mutex mutex_;
    std::set<std::string> keys_;
    bool callWaits_ = false;
};

/// What a store and its participants share: the folder, the watch, and who is to be told. Any
/// thread may call.
class KeyValueHub : public std::enable_shared_from_this<KeyValueHub>
{
public:
    KeyValueHub(const Executor& background, std::filesystem::path folder,
                DiagnosticSink diagnostics);
    ~KeyValueHub();
    KeyValueHub(const KeyValueHub&) = delete;
    KeyValueHub& operator=(const KeyValueHub&) = delete;

    /// From now on the seat is told of what others write.
    void join(const std::shared_ptr<KeyValueSeat>& seat);
    void leave(const std::shared_ptr<KeyValueSeat>& seat);

    /// Watches the folder again where it has become another.
    void keepWatching();

    /// False, and told to the diagnostics, where it fails.
    bool write(const std::string& fileName, std::string_view value, const std::string& writer);

    const SharedFolder& folder() const noexcept { return folder_; }

    /// Tells of what is wrong with a call, each time.
    void refuse(std::string cause, std::string nextStep) const;

private:
    using Stream = boost::asio::posix::stream_descriptor;

    /// What is done again and again, so that a fault in it is told once.
    enum class Work
    {
        watching,
        writing
    };

    /// Whether `work` ended without a `SharedFolderFault`.
    bool attempt(Work kind, const std::function<void()>& work);

    // These hold the lock.
    void watchFolder();
    void listen();
    void takeNews();
    void tell(const std::string& key, const std::string& writer);
    void tellAll();

    static void awaitNews(const std::shared_ptr<Stream>& stream, std::weak_ptr<KeyValueHub> hub);

    const Executor background_;
    const SharedFolder folder_;
    const DiagnosticSink diagnostics_;

    /// Held while work is handed to a seat's executor, so that the executor is left alone once the
    /// seat has left.
    std::mutex mutex_;
    std::optional<FolderWatch> watch_;
    /// What is read to watch; once it is listened to, only `background_` touches it.
    std::shared_ptr<Stream> stream_;
    std::vector<std::shared_ptr<KeyValueSeat>> seats_;

    std::mutex faultsMutex_;
    std::array<std::string, 2> faults_;
};

}  // namespace platform
