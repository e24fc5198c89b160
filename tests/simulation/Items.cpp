#include "tests/simulation/Items.hpp"

#include "tests/support/TokenFactory.hpp"

namespace simulation
{
namespace
{

using platform::KeychainStatus;
using Kind = ItemCall::Kind;

constexpr auto keychainIdentifier = "Simulated Account";

platform::URL url(std::string_view text)
{
    return platform::URL::parse(text).value();
}

std::string textOf(const platform::SecretBytes& data)
{
    const auto bytes = data.view();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

const tessera::AccountEnvironment& environment()
{
    static const auto& made = *new tessera::AccountEnvironment{
        .localizedName = keychainIdentifier,
        .localizedKeychainIdentifier = keychainIdentifier,
        .jwtPublicKey = Texts::shared().publicKey(),
        .endpointURL = url("https://account.example"),
        .accountURL = url("https://account.example/account"),
        .marketingURL = url("https://example.org"),
    };
    return made;
}

std::string clientKeychainIdentifier(int client)
{
    return "Simulated " + clientIdentifier(client);
}

platform::KeychainIdentity tokenIdentity()
{
    return {.service = keychainIdentifier,
            .account = "Token",
            .accessGroup = "group.net.ostra.account",
            .synchronizable = true};
}

platform::KeychainIdentity infoIdentity(int client)
{
    // The program's own group, where it names none.
    return {.service = clientKeychainIdentifier(client),
            .account = "Info",
            .accessGroup = "org.example.simulation",
            .synchronizable = false};
}

const Text* storedText(const MemoryItemStore& stored, const platform::KeychainIdentity& identity)
{
    const auto items = stored.items();
    const auto found = items.find(identity);
    return found == items.end() ? nullptr : Texts::shared().find(textOf(found->second.data));
}

void store(MemoryItemStore& stored, const platform::KeychainIdentity& identity, const Text& text)
{
    stored.put({.identity = identity,
                .accessible = platform::KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock,
                .data = platform::SecretBytes(bytesOf(text.text))});
}

KeychainStatus WatchedItems::add(const platform::KeychainItem& item)
{
    const auto refused = refusal(Kind::write);
    return tell(Kind::write, item.identity.account, refused ? *refused : items_->add(item),
                textOf(item.data));
}

KeychainStatus WatchedItems::replace(const platform::ItemPattern& old,
                                     const platform::KeychainItem& item)
{
    const auto refused = refusal(Kind::write);
    return tell(Kind::write, item.identity.account, refused ? *refused : items_->replace(old, item),
                textOf(item.data));
}

platform::KeychainAnswer WatchedItems::copyMatching(const platform::ItemPattern& pattern,
                                                    platform::ItemContent content,
                                                    std::size_t limit)
{
    // A write looks first whether there is something to replace. That is no read of a value.
    if (content == platform::ItemContent::attributes)
        return items_->copyMatching(pattern, content, limit);
    const auto refused = refusal(Kind::read);
    auto answer = refused ? platform::KeychainAnswer{*refused, {}}
                          : items_->copyMatching(pattern, content, limit);
    tell(Kind::read, pattern.account.value_or(""), answer.status,
         answer.items.empty() ? std::string() : textOf(answer.items.front().data));
    return answer;
}

KeychainStatus WatchedItems::deleteMatching(const platform::ItemPattern& pattern)
{
    const auto refused = refusal(Kind::removal);
    return tell(Kind::removal, pattern.account.value_or(""),
                refused ? *refused : items_->deleteMatching(pattern));
}

std::optional<KeychainStatus> WatchedItems::refusal(Kind kind)
{
    if (locked_ > 0)
    {
        --locked_;
        return KeychainStatus::interactionNotAllowed;
    }
    if (!fault_ || fault_->first != kind)
        return std::nullopt;
    return std::exchange(fault_, std::nullopt)->second;
}

KeychainStatus WatchedItems::tell(Kind kind, const std::string& account, KeychainStatus status,
                                  std::string text) const
{
    auto item = account == "Token" ? Item::token : Item::other;
    if (account == "Info")
        item = Item::info;
    onCall_({host_, kind, item, status, std::move(text)});
    return status;
}

}  // namespace simulation
