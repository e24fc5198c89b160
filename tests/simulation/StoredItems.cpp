#include "tests/simulation/StoredItems.hpp"

#include "tests/support/TokenFactory.hpp"

namespace simulation
{
namespace
{

platform::URL url(std::string_view text)
{
    return platform::URL::parse(text).value();
}

constexpr auto keychainIdentifier = "Simulated Account";
/// The program's own group, where it names none.
constexpr auto programGroup = "org.example.simulation";

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
    return {.service = clientKeychainIdentifier(client),
            .account = "Info",
            .accessGroup = programGroup,
            .synchronizable = false};
}

const Text* storedText(const MemoryItemStore& stored, const platform::KeychainIdentity& identity)
{
    const auto items = stored.items();
    const auto found = items.find(identity);
    if (found == items.end())
        return nullptr;
    const auto bytes = found->second.data.view();
    return Texts::shared().find({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void store(MemoryItemStore& stored, const platform::KeychainIdentity& identity, const Text& text)
{
    stored.put({.identity = identity,
                .accessible = platform::KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock,
                .data = platform::SecretBytes(bytesOf(text.text))});
}

}  // namespace simulation
