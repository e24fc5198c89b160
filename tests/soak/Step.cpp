#include "tests/soak/Step.hpp"

#include <algorithm>
#include <array>

namespace soak
{

using platform::KeychainStatus;
using enum Step::Kind;

Step anyStep(Random& random, std::uint64_t number, bool withPassphrase)
{
    struct Share
    {
        Step::Kind kind;
        std::uint64_t end;
    };
    static constexpr Share shares[]{{changePassphrase, 8}, {remove, 20},    {update, 30}, {add, 38},
                                    {putRefused, 43},      {removeAll, 46}, {put, 100}};
    const auto key = random.below(keyCount);
    const auto otherKey = (key + 1 + random.below(keyCount - 1)) % keyCount;
    const auto chance = random.below(100);
    const auto* share = std::ranges::find_if(
        shares, [&](const Share& one)
        { return chance < one.end && (withPassphrase || one.kind != changePassphrase); });
    return {share->kind, static_cast<std::uint8_t>(key), number,
            static_cast<std::uint8_t>(otherKey)};
}

State after(const State& state, const Step& step)
{
    auto next = state;
    const auto& key = keyAt(step.key);
    if (step.kind == removeAll)
        next.clear();
    if (step.kind == remove || step.kind == putRefused)
        next.erase(key);
    if (step.kind == put || (step.kind == update && next.contains(key)))
        next[key] = step.number;
    if (step.kind == add || step.kind == putRefused)
        next.emplace(keyAt(step.kind == add ? step.key : step.otherKey), step.number);
    return next;
}

KeychainStatus expectedStatus(const State& state, const Step& step)
{
    const bool isThere = state.contains(keyAt(step.kind == putRefused ? step.otherKey : step.key));
    if ((step.kind == add || step.kind == putRefused) && isThere)
        return KeychainStatus::duplicateItem;
    if ((step.kind == remove && !isThere) || (step.kind == removeAll && state.empty()))
        return KeychainStatus::itemNotFound;
    return KeychainStatus::success;
}

KeychainStatus carryOut(const Step& step, Store& store)
{
    const auto& key = keyAt(step.key);
    switch (step.kind)
    {
        case put:
            return store.put(key, step.number);
        case add:
            return store.add(key, step.number);
        case update:
            return store.update(key, step.number);
        case remove:
            return store.remove(key);
        case removeAll:
            return store.removeAll();
        case putRefused:
            return store.replace(key, keyAt(step.otherKey), step.number);
        case changePassphrase:
            break;
    }
    return store.changePassphrase(step.number);
}

std::string shown(const Step& step)
{
    static constexpr std::array names{"put",
                                      "add",
                                      "update",
                                      "remove",
                                      "remove all",
                                      "delete with an add of another key",
                                      "change the passphrase"};
    auto text = names.at(static_cast<std::size_t>(step.kind)) + (" " + shown(keyAt(step.key)));
    if (step.kind == putRefused)
        text += " and " + shown(keyAt(step.otherKey));
    return text + " as " + std::to_string(step.number);
}

std::string shown(const State& state)
{
    std::string text;
    for (const auto& [key, number] : state)
        text += (text.empty() ? "" : ", ") + shown(key) + ": " + std::to_string(number);
    return "{" + text + "}";
}

}  // namespace soak
