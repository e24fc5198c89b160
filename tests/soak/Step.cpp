#include "tests/soak/Step.hpp"

namespace soak
{

using platform::KeychainStatus;
using enum Step::Kind;

Step anyStep(Random& random, std::uint64_t number, bool withPassphrase)
{
    Step step{.kind = put,
              .key = static_cast<std::uint8_t>(random.below(keyCount)),
              .otherKey = 0,
              .number = number};
    step.otherKey =
        static_cast<std::uint8_t>((step.key + 1 + random.below(keyCount - 1)) % keyCount);
    const auto chance = random.below(100);
    if (withPassphrase && chance < 8)
        step.kind = changePassphrase;
    else if (chance < 20)
        step.kind = remove;
    else if (chance < 30)
        step.kind = update;
    else if (chance < 38)
        step.kind = add;
    else if (chance < 43)
        step.kind = putRefused;
    else if (chance < 46)
        step.kind = removeAll;
    return step;
}

State after(const State& state, const Step& step)
{
    auto next = state;
    const auto& key = keyAt(step.key);
    switch (step.kind)
    {
        case put:
            next[key] = step.number;
            break;
        case add:
            next.emplace(key, step.number);
            break;
        case update:
            if (next.contains(key))
                next[key] = step.number;
            break;
        case remove:
            next.erase(key);
            break;
        case removeAll:
            next.clear();
            break;
        case putRefused:
            next.erase(key);
            next.emplace(keyAt(step.otherKey), step.number);
            break;
        case changePassphrase:
            break;
    }
    return next;
}

KeychainStatus expectedStatus(const State& state, const Step& step)
{
    const bool there = state.contains(keyAt(step.key));
    switch (step.kind)
    {
        case add:
            return there ? KeychainStatus::duplicateItem : KeychainStatus::success;
        case remove:
            return there ? KeychainStatus::success : KeychainStatus::itemNotFound;
        case removeAll:
            return state.empty() ? KeychainStatus::itemNotFound : KeychainStatus::success;
        case putRefused:
            return state.contains(keyAt(step.otherKey)) ? KeychainStatus::duplicateItem
                                                        : KeychainStatus::success;
        case put:
        case update:
        case changePassphrase:
            break;
    }
    return KeychainStatus::success;
}

KeychainStatus carryOut(const Step& step, Items& items, Store& store)
{
    const auto& key = keyAt(step.key);
    switch (step.kind)
    {
        case put:
            return items.put(key, step.number);
        case add:
            return items.add(key, step.number);
        case update:
            return items.update(key, step.number);
        case remove:
            return items.remove(key);
        case removeAll:
            return items.removeAll();
        case putRefused:
            return items.putRefused(key, keyAt(step.otherKey), step.number);
        case changePassphrase:
            break;
    }
    return store.changePassphrase(step.number);
}

std::string shown(const Step& step)
{
    const auto key = shown(keyAt(step.key));
    switch (step.kind)
    {
        case put:
            return "put " + key + " as write " + std::to_string(step.number);
        case add:
            return "add " + key + " as write " + std::to_string(step.number);
        case update:
            return "update " + key + " to write " + std::to_string(step.number);
        case remove:
            return "remove " + key;
        case removeAll:
            return "remove all";
        case putRefused:
            return "delete " + key + " with an add of " + shown(keyAt(step.otherKey)) +
                   " as write " + std::to_string(step.number);
        case changePassphrase:
            break;
    }
    return "change to passphrase " + std::to_string(step.number);
}

std::string shown(const State& state)
{
    std::string text;
    for (const auto& [key, number] : state)
        text += (text.empty() ? "" : ", ") + shown(key) + ": " + std::to_string(number);
    return "{" + text + "}";
}

}  // namespace soak
