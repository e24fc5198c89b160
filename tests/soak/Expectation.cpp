#include "tests/soak/Expectation.hpp"

#include <algorithm>

namespace soak
{

using platform::KeychainStatus;

void Expectation::began(const Step& step)
{
    underWay_ = step;
}

std::string Expectation::acknowledged(const Step& step, KeychainStatus status)
{
    underWay_.reset();
    const auto expected = expectedStatus(stored_, step);
    const auto before = stored_;
    stored_ = after(stored_, step);
    if (step.kind == Step::Kind::changePassphrase)
        passphrase_ = step.number;
    const bool good =
        status == expected || (expected == KeychainStatus::itemNotFound &&
                               status == KeychainStatus::success && removesWhatWasUnfinished(step));
    if (step.kind == Step::Kind::removeAll)
        perhapsUnfinished_.clear();
    else
        perhapsUnfinished_.erase(step.key);
    if (good)
        return {};
    return shown(step) + " answered " + shown(status) + " instead of " + shown(expected) + " on " +
           shown(before);
}

bool Expectation::removesWhatWasUnfinished(const Step& step) const
{
    if (step.kind == Step::Kind::removeAll)
        return !perhapsUnfinished_.empty();
    return step.kind == Step::Kind::remove && perhapsUnfinished_.contains(step.key);
}

std::string Expectation::text() const
{
    return shown(stored_) + (underWay_ ? ", with this under way: " + shown(*underWay_) : "") +
           (passphrase_ ? ", passphrase " + std::to_string(*passphrase_) : "");
}

bool Expectation::explains(const State& found) const
{
    if (found == stored_)
        return true;
    if (!underWay_)
        return false;
    if (partialRemovals_ && underWay_->kind == Step::Kind::removeAll)
        return std::ranges::includes(stored_, found);
    return found == after(stored_, *underWay_);
}

std::string Expectation::check(Items& items)
{
    const auto listing = items.all();
    if (listing.status != KeychainStatus::success)
        return "listing the items: " + shown(listing.status) + " instead of " + text();
    if (!listing.fault.empty())
        return listing.fault + " instead of " + text();

    if (!explains(listing.numbers))
        return "there is " + shown(listing.numbers) + " instead of " + text();
    stored_ = listing.numbers;
    const bool mayBeCutOff = partialRemovals_ && underWay_ &&
                             underWay_->kind != Step::Kind::removeAll &&
                             underWay_->kind != Step::Kind::changePassphrase;
    if (mayBeCutOff && !stored_.contains(keyAt(underWay_->key)))
        perhapsUnfinished_.insert(underWay_->key);
    underWay_.reset();

    for (std::size_t index = 0; index < keyCount; ++index)
    {
        const auto& key = keyAt(index);
        const auto found = items.get(key);
        const auto entry = stored_.find(key);
        const auto expected =
            entry == stored_.end() ? KeychainStatus::itemNotFound : KeychainStatus::success;
        if (found.status != expected)
            return "reading " + shown(key) + ": " + shown(found.status);
        if (entry != stored_.end() && found.number != entry->second)
            return "reading " + shown(key) + " gave " + shown(found.number) + " instead of write " +
                   std::to_string(entry->second);
    }
    return {};
}

std::string Expectation::checkAnswers(Items& items) const
{
    const auto listing = items.all();
    if (!listing.fault.empty())
        return listing.fault;
    if (listing.status == KeychainStatus::success && listing.numbers != stored_)
        return "listed " + shown(listing.numbers) + " instead of " + shown(stored_);

    for (std::size_t index = 0; index < keyCount; ++index)
    {
        const auto& key = keyAt(index);
        const auto found = items.get(key);
        const auto entry = stored_.find(key);
        const bool isThere = entry != stored_.end();
        if (found.status == KeychainStatus::itemNotFound && isThere)
            return shown(key) + " is said not to exist";
        if (found.status == KeychainStatus::success && (!isThere || found.number != entry->second))
            return "reading " + shown(key) + " gave " + shown(found.number);
    }
    return {};
}

std::vector<std::uint64_t> Expectation::passphrases() const
{
    std::vector<std::uint64_t> possible;
    if (passphrase_)
        possible.push_back(*passphrase_);
    if (underWay_ && underWay_->kind == Step::Kind::changePassphrase)
        possible.push_back(underWay_->number);
    return possible;
}

void Expectation::setPassphrase(std::uint64_t number)
{
    passphrase_ = number;
}

std::string checkAnew(Place& place, Expectation& expectation, Below below)
{
    if (!place.passphrase)
    {
        const auto store = openStore(place, below);
        Items items(store->items());
        const auto wrong = expectation.check(items);
        return wrong.empty() ? wrong : wrong + " " + store->diagnostics();
    }
    std::string refusals;
    for (const auto number : expectation.passphrases())
    {
        auto tried = place;
        tried.passphrase = number;
        const auto store = openStore(tried, below);
        Items items(store->items());
        const auto status = items.get(keyAt(0)).status;
        if (status != KeychainStatus::success && status != KeychainStatus::itemNotFound)
        {
            refusals += "passphrase " + std::to_string(number) + ": " + shown(status) + " " +
                        store->diagnostics() + "; ";
            continue;
        }
        place = tried;
        expectation.setPassphrase(number);
        const auto wrong = expectation.check(items);
        return wrong.empty() ? wrong : wrong + " " + store->diagnostics();
    }
    return "no passphrase opens the store: " + refusals;
}

}  // namespace soak
