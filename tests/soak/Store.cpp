#include "tests/soak/Store.hpp"

#include "tests/soak/Child.hpp"
#include "tests/soak/FileWatcher.hpp"
#include "tests/soak/Random.hpp"

#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

namespace soak
{

using platform::KeychainQuery;
using platform::KeychainStatus;
using platform::SecretBytes;
using enum platform::KeychainAttribute;

namespace
{

constexpr auto service = "tessera-soak";
constexpr auto program = "org.example.soak";
constexpr std::size_t shortest = 16;
constexpr std::size_t longest = 64 * 1024;

std::uint64_t hash(std::string_view text)
{
    std::uint64_t state = 0xcbf29ce484222325;
    for (const unsigned char byte : text)
        state = (state ^ byte) * 0x100000001b3;
    return state;
}

/// Short values mostly, as in life, some that need many pages.
SecretBytes makeValue(std::string_view key, std::uint64_t number)
{
    Random random(hash(key) ^ (number * 0x9e3779b97f4a7c15));
    const auto kind = random.below(8);
    auto length = kind == 1 ? longest : shortest;
    if (kind == 0)
        length += random.below(longest - shortest);
    else if (kind > 2)
        length += random.below(2000);
    SecretBytes value;
    value.resize(length);
    const auto bytes = value.mutableView();
    std::memcpy(bytes.data(), &number, sizeof number);
    for (std::size_t at = sizeof number; at < bytes.size(); at += sizeof number)
    {
        const auto filling = random.any();
        std::memcpy(bytes.data() + at, &filling, std::min(sizeof filling, bytes.size() - at));
    }
    return value;
}

/// The write that the value belongs to; nothing when it is not whole, or not of this key.
std::optional<std::uint64_t> numberOf(std::string_view key, const SecretBytes& value)
{
    std::uint64_t number = 0;
    if (value.size() < sizeof number)
        return std::nullopt;
    std::memcpy(&number, value.view().data(), sizeof number);
    return makeValue(key, number) == value ? std::optional(number) : std::nullopt;
}

KeychainQuery base()
{
    return {{kSecClass, platform::KeychainClass::kSecClassGenericPassword},
            {kSecAttrService, std::string(service)},
            {kSecAttrAccessible, platform::KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock}};
}

KeychainQuery of(std::string_view key)
{
    return base().with(kSecAttrAccount, std::string(key));
}

KeychainQuery everyOne(const KeychainQuery& query)
{
    return query.with(kSecMatchLimit, platform::KeychainMatchLimit::kSecMatchLimitAll);
}

platform::SecretString passphrase(std::uint64_t number)
{
    return platform::SecretString("passphrase " + std::to_string(number));
}

}  // namespace

std::vector<std::string> Place::command(const std::string& part,
                                        std::vector<std::string> options) const
{
    std::vector<std::string> words{Child::thisProgram, part, "--folder", folder};
    if (isSecretService())
        words.insert(words.end(), {"--bus", busAddress});
    if (passphrase)
        words.insert(words.end(), {"--passphrase", std::to_string(*passphrase)});
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

/// Keeps the last one; stores tell them from any thread, and may outlive who asked.
struct Store::Diagnostics
{
    std::mutex mutex;
    std::string last;
};

Store::Store(Place place, Below below)
    : place_(std::move(place)), diagnostics_(std::make_shared<Diagnostics>())
{
    const auto sink = [diagnostics = diagnostics_](const platform::Diagnostic& one)
    {
        const std::lock_guard lock(diagnostics->mutex);
        diagnostics->last = "(" + one.cause + " " + one.nextStep + ")";
    };
    if (place_.isSecretService())
    {
        platform::SecretServiceItemStore::Configuration configuration;
        configuration.busAddress = place_.busAddress;
        configuration.lockFolder = place_.folder;
        configuration.diagnostics = sink;
        items_ = std::make_shared<platform::SecretServiceItemStore>(std::move(configuration));
    }
    else
    {
        platform::EmbeddedItemStore::Configuration configuration;
        configuration.dataFolder = place_.folder / "data";
        configuration.keyFolder = place_.folder / "key";
        if (place_.passphrase)
            configuration.passphrase = [this]
            { return std::optional(passphrase(*place_.passphrase)); };
        configuration.firstKeyMayBePlain = true;
        configuration.diagnostics = sink;
        if (below == Below::watched)
        {
            configuration.vfs = watchedVFS();
            configuration.files = watchedFileLayer();
        }
        embedded_ = std::make_shared<platform::EmbeddedItemStore>(std::move(configuration));
        items_ = embedded_;
    }
    keychain_ = std::make_shared<platform::StoreKeychain>(
        items_, [] { return platform::KeychainSurroundings{{.identifier = program}, {}}; });
}

KeychainStatus Store::put(std::string_view key, std::uint64_t number)
{
    return replace(key, key, number);
}

KeychainStatus Store::replace(std::string_view deleted, std::string_view added,
                              std::uint64_t number)
{
    const auto scope = keychain_->stage();
    const auto status = scope->deleteMatching(everyOne(of(deleted)));
    if (status != KeychainStatus::success && status != KeychainStatus::itemNotFound)
        return status;
    return scope->add(of(added).with(kSecValueData, makeValue(added, number)));
}

KeychainStatus Store::add(std::string_view key, std::uint64_t number)
{
    return keychain_->add(of(key).with(kSecValueData, makeValue(key, number)));
}

KeychainStatus Store::remove(std::string_view key)
{
    return keychain_->deleteMatching(of(key));
}

KeychainStatus Store::removeAll()
{
    return keychain_->deleteMatching(everyOne(base()));
}

KeychainStatus Store::update(std::string_view key, std::uint64_t number)
{
    const platform::KeychainIdentity identity{.service = service,
                                              .account = std::string(key),
                                              .accessGroup = program,
                                              .synchronizable = false};
    return items_->update(
        identity, [&](const SecretBytes* stored)
        { return stored ? std::optional(makeValue(key, number)) : std::nullopt; });
}

Store::Found Store::get(std::string_view key)
{
    const auto answer = keychain_->copyMatching(of(key).with(kSecReturnData, true));
    Found found{.status = answer.status};
    if (answer.status == KeychainStatus::success && answer.items.size() == 1)
        found.number = numberOf(key, answer.items.front().data);
    return found;
}

Store::Listing Store::all()
{
    const auto answer = keychain_->copyMatching(
        everyOne(base()).with(kSecReturnData, true).with(kSecReturnAttributes, true));
    Listing listing{.status = answer.status};
    if (answer.status == KeychainStatus::itemNotFound)
        listing.status = KeychainStatus::success;
    for (const auto& item : answer.items)
    {
        const auto& key = item.identity.account;
        const auto number = numberOf(key, item.data);
        if (!number)
            listing.fault = "the value of " + shown(key) + " is damaged (" +
                            std::to_string(item.data.size()) + " bytes)";
        else if (!listing.numbers.emplace(key, *number).second)
            listing.fault = "there are two items for " + shown(key);
    }
    return listing;
}

KeychainStatus Store::changePassphrase(std::uint64_t number)
{
    if (!embedded_ || !place_.passphrase)
        return KeychainStatus::notAvailable;
    const auto status =
        embedded_->changePassphrase(passphrase(*place_.passphrase), passphrase(number));
    if (status == KeychainStatus::success)
        place_.passphrase = number;
    return status;
}

std::string Store::diagnostics() const
{
    const std::lock_guard lock(diagnostics_->mutex);
    return diagnostics_->last;
}

bool isAnswer(KeychainStatus status)
{
    using enum KeychainStatus;
    return status == success || status == itemNotFound || status == duplicateItem;
}

const std::string& keyAt(std::size_t index)
{
    static const std::array<std::string, keyCount> keys{"token",
                                                        "refresh token",
                                                        std::string("with\0nul", 8),
                                                        "Schl\xc3\xbcssel",
                                                        std::string(1024, 'k'),
                                                        "a"};
    return keys.at(index);
}

std::uint64_t writeOfLength(std::string_view key, std::size_t least, std::size_t most)
{
    for (std::uint64_t number = 1;; ++number)
        if (const auto size = makeValue(key, number).size(); size >= least && size <= most)
            return number;
}

std::string shown(std::string_view key)
{
    if (key.size() > 20)
        return "a key of " + std::to_string(key.size()) + " bytes";
    std::string text(key);
    std::ranges::replace(text, '\0', '?');
    return '"' + text + '"';
}

std::string shown(KeychainStatus status)
{
    return "status " + std::to_string(static_cast<int>(status));
}

std::string shown(const std::optional<std::uint64_t>& number)
{
    return number ? "write " + std::to_string(*number) : "nothing";
}

}  // namespace soak
