#include "Platform/KeyValueStore/KeyValueHub.hpp"

#include "Platform/KeyValueStore/SharedFolderNames.hpp"

#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <utility>

namespace platform
{
namespace
{

constexpr const char* area = "key-value store";

}  // namespace

KeyValueSeat::KeyValueSeat(const Executor& executor, UbiquitousKeyValueStore::Handler handler)
    : writer_(newWriter()),
      executor_(executor),
      handler_(std::make_shared<const UbiquitousKeyValueStore::Handler>(std::move(handler)))
{}

void KeyValueSeat::changed(const std::string& key)
{
    {
        const std::lock_guard lock(mutex_);
        keys_.insert(key);
        if (std::exchange(callWaits_, true))
            return;
    }
    boost::asio::post(executor_, [self = shared_from_this()] { self->tell(); });
}

void KeyValueSeat::leave()
{
    handler_.reset();
}

void KeyValueSeat::tell()
{
    std::set<std::string> keys;
    {
        const std::lock_guard lock(mutex_);
        keys.swap(keys_);
        callWaits_ = false;
    }
    // Held, because it may leave.
    if (const auto handler = handler_)
        (*handler)({.changedKeys = std::vector<std::string>(keys.begin(), keys.end())});
}

KeyValueHub::KeyValueHub(const Executor& background, std::filesystem::path folder,
                         DiagnosticSink diagnostics)
    : background_(background), folder_(std::move(folder)), diagnostics_(std::move(diagnostics))
{}

KeyValueHub::~KeyValueHub()
{
    if (stream_)
        boost::asio::post(background_, [stream = std::move(stream_)] { stream->close(); });
}

void KeyValueHub::join(const std::shared_ptr<KeyValueSeat>& seat)
{
    {
        const std::lock_guard lock(mutex_);
        attempt(Work::watching, [this] { watchFolder(); });
        // What happened before is not for the one who joins.
        takeNews();
        seats_.push_back(seat);
    }
    folder_.removeLeftDrafts();
}

void KeyValueHub::leave(const std::shared_ptr<KeyValueSeat>& seat)
{
    const std::lock_guard lock(mutex_);
    std::erase(seats_, seat);
}

void KeyValueHub::keepWatching()
{
    const std::lock_guard lock(mutex_);
    attempt(Work::watching, [this] { watchFolder(); });
}

bool KeyValueHub::write(const std::string& fileName, std::string_view value,
                        const std::string& writer)
{
    return attempt(Work::writing, [&] { folder_.write(fileName, value, writer); });
}

void KeyValueHub::refuse(std::string cause, std::string nextStep) const
{
    if (diagnostics_)
        diagnostics_({area, std::move(cause), std::move(nextStep)});
}

bool KeyValueHub::attempt(Work kind, const std::function<void()>& work)
{
    std::string fault;
    std::string nextStep;
    try
    {
        work();
    }
    catch (SharedFolderFault& thrown)
    {
        fault = std::move(thrown.cause);
        nextStep = std::move(thrown.nextStep);
    }
    bool isNews = false;
    {
        const std::lock_guard lock(faultsMutex_);
        isNews = std::ranges::find(faults_, fault) == faults_.end();
        faults_[static_cast<std::size_t>(kind)] = fault;
    }
    if (isNews && !fault.empty())
        refuse(fault, nextStep);
    return fault.empty();
}

void KeyValueHub::watchFolder()
{
    if (!stream_)
        listen();
    // Nobody has watched another one for a while.
    if (watch_->begin(folder_))
        tellAll();
}

void KeyValueHub::listen()
{
    auto opened = FolderWatch::open();
    try
    {
        stream_ = std::make_shared<Stream>(background_, opened.number());
    }
    catch (const boost::system::system_error& error)
    {
        throw SharedFolderFault::ofSystem("What other programs share is not noticed",
                                          error.code().value());
    }
    watch_.emplace(opened.release());
    awaitNews(stream_, weak_from_this());
}

void KeyValueHub::awaitNews(const std::shared_ptr<Stream>& stream, std::weak_ptr<KeyValueHub> hub)
{
    stream->async_wait(Stream::wait_read,
                       [stream, hub](const boost::system::error_code& error)
                       {
                           const auto self = hub.lock();
                           if (error || !self)
                               return;
                           {
                               const std::lock_guard lock(self->mutex_);
                               self->takeNews();
                           }
                           awaitNews(stream, hub);
                       });
}

void KeyValueHub::takeNews()
{
    if (!watch_)
        return;
    const auto news = watch_->read();
    for (const auto& [key, writer] : news.written)
        tell(key, writer);
    if (news.lost)
        attempt(Work::watching, [this] { watchFolder(); });
}

void KeyValueHub::tell(const std::string& key, const std::string& writer)
{
    for (const auto& seat : seats_)
        if (seat->writer() != writer)
            seat->changed(key);
}

void KeyValueHub::tellAll()
{
    if (seats_.empty())
        return;
    for (const auto& key : folder_.keys())
        tell(key, {});
}

}  // namespace platform
