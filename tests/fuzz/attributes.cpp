// Queries of any shape end with one of the listed statuses; an item that is taken comes back equal,
// and what the desktop's keyring would be given of it reads back as the item.

#include "Platform/Coding/Text.hpp"
#include "Platform/Security/Authentication/ItemEnvelope.hpp"
#include "Platform/Security/Authentication/PasscodeRecord.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Platform/Security/SecretService/ItemAttributes.hpp"
#include "tests/fuzz/Require.hpp"
#include "tests/support/MemoryItemStore.hpp"

#include <fuzzer/FuzzedDataProvider.h>

using namespace platform;
using enum KeychainAttribute;

namespace
{

SecretBytes bytes(const std::string& text)
{
    return SecretBytes(std::as_bytes(std::span(text)));
}

KeychainValue anyValue(FuzzedDataProvider& input, Keychain& keychain)
{
    const auto accessible =
        static_cast<KeychainAccessible>(input.ConsumeIntegralInRange<int>(0, 7));
    const auto flag = static_cast<AccessControlFlag>(input.ConsumeIntegralInRange<int>(0, 17));
    switch (input.ConsumeIntegralInRange<int>(0, 6))
    {
        case 0:
            return input.ConsumeBool();
        case 1:
            return input.ConsumeRandomLengthString();
        case 2:
            return bytes(input.ConsumeRandomLengthString());
        case 3:
            return KeychainClass::kSecClassGenericPassword;
        case 4:
            return accessible;
        case 5:
            return KeychainMatchLimit::kSecMatchLimitAll;
        default:
            return keychain.makeAccessControl(accessible, flag);
    }
}

void tryQuery(FuzzedDataProvider& input)
{
    const auto store = std::make_shared<MemoryItemStore>();
    StoreKeychain keychain(store, [] { return KeychainSurroundings{{.identifier = "fuzz"}, {}}; });
    KeychainQuery query{{kSecClass, KeychainClass::kSecClassGenericPassword}};
    query.set(kSecAttrService, input.ConsumeRandomLengthString())
        .set(kSecAttrAccount, input.ConsumeRandomLengthString());
    for (auto count = input.ConsumeIntegralInRange<int>(0, 6); count > 0; --count)
    {
        const auto attribute = static_cast<KeychainAttribute>(
            input.ConsumeIntegralInRange<int>(0, int(kSecUseAuthenticationContext)));
        query.set(attribute, anyValue(input, keychain));
    }

    keychain.copyMatching(query);
    keychain.deleteMatching(query);
    if (query.find(kSecValueData))
        return;
    const auto value = bytes(input.ConsumeRandomLengthString());
    if (keychain.add(query.with(kSecValueData, value)) != KeychainStatus::success)
        return;
    const auto read = keychain.copyMatching(query.with(kSecReturnData, true));
    require(read.status == KeychainStatus::success && read.items.at(0).data == value);

    const auto stored = store->items().begin()->second;
    auto parsed = secretItem::parsed(secretItem::attributes(stored));
    require(parsed && secretItem::readSealedText(secretItem::sealedText(stored), *parsed));
    require(*parsed == stored);
}

void tryStored(FuzzedDataProvider& input)
{
    KeychainItem item;
    item.accessControl = static_cast<AccessControlFlag>(input.ConsumeIntegralInRange<int>(0, 17));
    item.data = bytes(input.ConsumeRandomLengthString());
    ItemEnvelope envelope;
    ItemEnvelope::read(item, envelope);
    secretItem::readSealedText(item.data, item);
    if (const auto record = PasscodeRecord::read(item.data.view()))
        require(record->written().size() > 0);

    // The bus carries UTF-8 alone, and no NUL.
    auto text = repairedUTF8(input.ConsumeRandomLengthString());
    std::erase(text, '\0');
    if (const auto plain = secretItem::unescaped(text))
        require(secretItem::escaped(*plain) == text);
    secretItem::Attributes attributes;
    for (const auto* name : {"xdg:schema", "service", "account", "accessGroup", "synchronizable",
                             "accessible", "accessControl"})
        attributes[name] = input.ConsumeRandomLengthString();
    secretItem::parsed(attributes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    if (input.ConsumeBool())
        tryQuery(input);
    else
        tryStored(input);
    return 0;
}
