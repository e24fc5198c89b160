#include "tests/simulation/Announcements.hpp"

#include <boost/asio/post.hpp>

#include <utility>

namespace simulation
{

using platform::UbiquitousKeyValueStore;

class Announcements::Member final : public UbiquitousKeyValueStore::Participant
{
public:
    using Handler = UbiquitousKeyValueStore::Handler;

    Member(Announcements& all, int host, platform::Executor executor, Handler handler)
        : all_(all),
          host_(host),
          executor_(std::move(executor)),
          handler_(std::make_shared<Handler>(std::move(handler)))
    {
        all_.members_[host_] = this;
    }
    ~Member() override { all_.members_.erase(host_); }

    std::optional<std::string> string(std::string_view forKey) const override
    {
        const auto found = all_.values_.find(forKey);
        return found == all_.values_.end() ? std::nullopt : std::optional(found->second);
    }

    void setString(std::string_view value, std::string_view forKey) override
    {
        all_.values_.insert_or_assign(std::string(forKey), std::string(value));
        changed_.insert(std::string(forKey));
    }

    bool synchronize() override
    {
        all_.onSynchronize_(host_);
        if (all_.failing_.erase(host_) > 0)
            return false;
        for (const auto& [other, member] : all_.members_)
            if (member != this)
                member->news.insert(changed_.begin(), changed_.end());
        changed_.clear();
        return true;
    }

    void tell(platform::ExternalKeyValueChange change) const
    {
        // Weak: whoever has left is not called any more.
        boost::asio::post(executor_,
                          [handler = std::weak_ptr(handler_), change = std::move(change)]
                          {
                              if (const auto alive = handler.lock())
                                  (*alive)(change);
                          });
    }

    std::set<std::string> news;

private:
    Announcements& all_;
    const int host_;
    const platform::Executor executor_;
    const std::shared_ptr<Handler> handler_;
    std::set<std::string> changed_;
};

class Announcements::Store final : public UbiquitousKeyValueStore
{
public:
    Store(Announcements& all, int host) : all_(all), host_(host) {}

    std::unique_ptr<Participant> join(const platform::Executor& executor, Handler handler) override
    {
        return std::make_unique<Member>(all_, host_, executor, std::move(handler));
    }

private:
    Announcements& all_;
    const int host_;
};

std::shared_ptr<UbiquitousKeyValueStore> Announcements::storeOf(int host)
{
    return std::make_shared<Store>(*this, host);
}

std::vector<int> Announcements::awaited() const
{
    std::vector<int> hosts;
    for (const auto& [host, member] : members_)
        if (!member->news.empty())
            hosts.push_back(host);
    return hosts;
}

void Announcements::deliver(int host, Delivery delivery)
{
    const auto found = members_.find(host);
    if (found == members_.end())
        return;
    auto& news = found->second->news;
    platform::ExternalKeyValueChange change{std::vector(news.begin(), news.end())};
    if (delivery == Delivery::withoutKeys)
        change.changedKeys.reset();
    if (delivery == Delivery::ofAnotherKey)
        change.changedKeys = {"net.ostra.account.theme"};
    if (delivery == Delivery::once || delivery == Delivery::lost)
        news.clear();
    if (delivery != Delivery::lost)
        found->second->tell(std::move(change));
}

}  // namespace simulation
