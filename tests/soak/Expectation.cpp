#include "tests/soak/Expectation.hpp"

#include <algorithm>

namespace soak
{

using platform::KeychainStatus;
using enum Step::Kind;

namespace
{

std::string withDiagnostics(const std::string& wrong, const Store& store)
{
    return wrong.empty() ? wrong : wrong + " " + store.diagnostics();
}

}  // namespace

void Expectation::happened(const Step& step)
{
    underWay_.reset();
    stored_ = after(stored_, step);
    if (step.kind == changePassphrase)
        passphrase_ = step.number;
    if (step.kind == removeAll)
        perhapsUnfinished_.clear();
    else
        perhapsUnfinished_.erase(step.key);
}

std::string Expectation::acknowledged(const Step& step, KeychainStatus status)
{
    const auto expected = expectedStatus(stored_, step);
    const bool isRight =
        status == expected || (expected == KeychainStatus::itemNotFound &&
                               status == KeychainStatus::success && removesWhatWasUnfinished(step));
    const auto wrong = shown(step) + " answered " + shown(status) + " instead of " +
                       shown(expected) + " on " + shown(stored_);
    happened(step);
    return isRight ? "" : wrong;
}

bool Expectation::removesWhatWasUnfinished(const Step& step) const
{
    return step.kind == removeAll ? !perhapsUnfinished_.empty()
                                  : step.kind == remove && perhapsUnfinished_.contains(step.key);
}

std::string Expectation::carryOut(const Step& step, Store& store)
{
    return withDiagnostics(acknowledged(step, soak::carryOut(step, store)), store);
}

std::string Expectation::text() const
{
    return shown(stored_) + (underWay_ ? ", with this under way: " + shown(*underWay_) : "") +
           (passphrase_ ? ", passphrase " + std::to_string(*passphrase_) : "");
}

bool Expectation::explains(const State& found) const
{
    if (found == stored_ || !underWay_)
        return found == stored_;
    if (partialRemovals_ && underWay_->kind == removeAll)
        return std::ranges::includes(stored_, found);
    return found == after(stored_, *underWay_);
}

void Expectation::noteUnfinished()
{
    const bool mayBeCutOff = partialRemovals_ && underWay_ && underWay_->kind != removeAll &&
                             underWay_->kind != changePassphrase;
    if (mayBeCutOff && !stored_.contains(keyAt(underWay_->key)))
        perhapsUnfinished_.insert(underWay_->key);
    underWay_.reset();
}

std::string Expectation::check(Store& store)
{
    const auto listing = store.all();
    auto wrong = listing.fault;
    if (listing.status != KeychainStatus::success)
        wrong = "listing the items: " + shown(listing.status);
    else if (wrong.empty() && !explains(listing.numbers))
        wrong = "there is " + shown(listing.numbers);
    if (!wrong.empty())
        return withDiagnostics(wrong + " instead of " + text(), store);
    stored_ = listing.numbers;
    noteUnfinished();
    return withDiagnostics(checkEachKey(store, false), store);
}

std::string Expectation::checkAnswers(Store& store) const
{
    const auto listing = store.all();
    if (!listing.fault.empty())
        return listing.fault;
    if (listing.status == KeychainStatus::success && listing.numbers != stored_)
        return "listed " + shown(listing.numbers) + " instead of " + shown(stored_);
    return checkEachKey(store, true);
}

std::string Expectation::checkEachKey(Store& store, bool mayFail) const
{
    for (std::size_t index = 0; index < keyCount; ++index)
    {
        const auto& key = keyAt(index);
        const auto found = store.get(key);
        const auto entry = stored_.find(key);
        const bool isThere = entry != stored_.end();
        const bool isRight =
            isThere ? found.status == KeychainStatus::success && found.number == entry->second
                    : found.status == KeychainStatus::itemNotFound;
        if (!isRight && (!mayFail || isAnswer(found.status)))
            return "reading " + shown(key) + " gave " + shown(found.status) + ", " +
                   shown(found.number) + " instead of " +
                   (isThere ? shown(std::optional(entry->second)) : "none");
    }
    return {};
}

std::string Expectation::checkAnew(Place& place, Below below)
{
    std::vector<std::optional<std::uint64_t>> passphrases{passphrase_};
    if (underWay_ && underWay_->kind == changePassphrase)
        passphrases.emplace_back(underWay_->number);
    std::string refusals;
    for (const auto& number : passphrases)
    {
        place.passphrase = number;
        Store store(place, below);
        const auto status = store.get(keyAt(0)).status;
        if (!number || isAnswer(status))
        {
            passphrase_ = number;
            return check(store);
        }
        refusals += "passphrase " + std::to_string(*number) + ": " + shown(status) + " " +
                    store.diagnostics() + "; ";
    }
    return "no passphrase opens the store: " + refusals;
}

}  // namespace soak
