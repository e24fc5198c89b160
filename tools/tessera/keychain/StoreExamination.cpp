#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Platform/Security/Keychain/Keychain.hpp"
#include "tools/tessera/keychain/Doctor.hpp"
#include "tools/tessera/keychain/Escaping.hpp"
#include "tools/tessera/keychain/NamedStore.hpp"

#include <algorithm>

namespace commandline
{
namespace
{

using State = Finding::State;
using platform::KeychainAttribute;
using platform::KeychainStatus;

/// As a shell takes it.
std::string quoted(const std::string& word)
{
    const auto isPlain = [](char c)
    {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
               std::string("_-.:/").find(c) != std::string::npos;
    };
    if (!word.empty() && std::ranges::all_of(word, isPlain))
        return word;
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return text + "'";
}

/// What the canary's own item says, and nobody is asked.
platform::KeychainAnswer readCanary(platform::Keychain& keychain, const StoreSummary& store)
{
    auto context = std::make_shared<platform::LocalAuthenticationContext>();
    context->setInteractionNotAllowed(true);
    return keychain.copyMatching(
        {{KeychainAttribute::kSecClass, platform::KeychainClass::kSecClassGenericPassword},
         {KeychainAttribute::kSecAttrService, store.service},
         {KeychainAttribute::kSecAttrAccessGroup, store.accessGroup},
         {KeychainAttribute::kSecAttrSynchronizable, store.synchronizable},
         {KeychainAttribute::kSecAttrAccount, std::string(canaryKey)},
         {KeychainAttribute::kSecReturnData, true},
         {KeychainAttribute::kSecReturnAttributes, true},
         {KeychainAttribute::kSecUseAuthenticationContext, std::move(context)}});
}

std::string removal(const KeychainCommand& command, const StoreSummary& store,
                    const platform::KeychainItem& canary)
{
    std::string text = "tessera keychain remove --service " + quoted(store.service);
    if (store.accessGroup != command.program)
        text += " --group " + quoted(store.accessGroup);
    else if (command.program != KeychainCommand().program)
        text += " --program " + quoted(command.program);
    if (canary.accessible != platform::KeychainAccessible::kSecAttrAccessibleWhenUnlocked)
        text += " --accessibility " + nameOf(canary.accessible);
    if (store.synchronizable)
        text += " --synchronizable";
    if (command.kind != KeychainKind::embedded)
        text += " --keychain " + std::string(word(command.kind));
    return text + " " + std::string(canaryKey);
}

std::string named(const StoreSummary& store)
{
    return "The store " + escaped(store.service) + " (" + escaped(store.accessGroup) +
           (store.synchronizable ? ", synchronizable)" : ")");
}

Finding judgeCanary(const KeychainCommand& command, platform::Keychain& keychain,
                    const StoreSummary& store)
{
    const auto answer = readCanary(keychain, store);
    if (answer.status == KeychainStatus::interactionNotAllowed)
        return {"store.canary", State::note,
                named(store) + " protects its canary, which was not read."};
    if (answer.status != KeychainStatus::success || answer.items.empty())
        return {"store.canary", State::fault, named(store) + " has a canary that cannot be read.",
                "See the faults above."};
    const auto expected = std::as_bytes(std::span(canaryValue));
    const auto& canary = answer.items.front();
    if (std::ranges::equal(canary.data.view(), expected))
        return {"store.canary", State::good, named(store) + " has a canary that holds."};
    return {"store.canary", State::fault,
            named(store) +
                " has a canary of another value: its programs count the keychain as inaccessible.",
            "If no program of yours wrote it, remove it, and it is made anew: " +
                removal(command, store, canary)};
}

void examine(const KeychainCommand& command, platform::Keychain& keychain,
             const StoreSummary& store, Findings& findings)
{
    findings.push_back({"store.items", State::good,
                        named(store) + " holds " + counted(store.items, "item") + "."});
    if (store.hasCanary)
        findings.push_back(judgeCanary(command, keychain, store));
    else
        findings.push_back({"store.canary", State::note,
                            named(store) + " has no canary yet: no program has tried it."});
}

/// Whether it is the one that was named; all are, if none was.
bool isMeant(const StoreSelection& selection, const std::string& service, const StoreSummary& store)
{
    return !selection.isNamed() ||
           (store.service == service && store.synchronizable == selection.synchronizable &&
            (!selection.group || store.accessGroup == selection.group->accessGroup()));
}

}  // namespace

void examineStores(const KeychainCommand& command, platform::Keychain& keychain, DiagnosticLog& log,
                   Findings& findings)
{
    try
    {
        const auto service =
            command.store.isNamed() ? NamedStore(command.store).service() : std::string();
        std::size_t items = 0, stores = 0;
        for (const auto& store : visibleStores(keychain))
        {
            if (!isMeant(command.store, service, store))
                continue;
            examine(command, keychain, store, findings);
            items += store.items;
            ++stores;
        }
        findings.push_back({"items", State::good,
                            counted(items, "item") + " in " + counted(stores, "store") +
                                " of the program " + escaped(command.program) + "."});
        if (command.store.isNamed() && stores == 0)
            findings.push_back(
                {"store.canary", State::note,
                 "The store " + escaped(service) + " has no canary yet: no program has tried it."});
    }
    catch (const valet::KeychainError&)
    {
        // The log says why.
        if (log.all().empty())
            findings.push_back({"keychain.read", State::fault, "The keychain cannot be read.",
                                "Try again, and report it if that does not help."});
    }
    for (const auto& diagnostic : log.take())
        findings.push_back(faultFrom("keychain.read", diagnostic));
}

}  // namespace commandline
