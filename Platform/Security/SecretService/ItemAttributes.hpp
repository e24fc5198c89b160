#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace platform
{

/// How an item looks in the Secret Service.
///
/// The attributes, by which it is found, are its identity and, beside it, what it demands:
/// "xdg:schema", "service", "account", "accessGroup", "synchronizable", "accessible",
/// "accessControl". They are kept in the clear by the service. NUL, which they cannot hold, is
/// written
/// "%00", and "%" is "%25"; nothing else is escaped, so that each text has one form.
///
/// The secret is text: "1:<accessible>:<accessControl>:<base64 of the data>". What the item demands
/// stands in it once more, because an attribute can be edited on its own and a secret cannot.
namespace secretItem
{

using Attributes = std::map<std::string, std::string>;

inline constexpr const char* schema = "net.ostra.Tessera.Item";
inline constexpr const char* label = "Tessera item";

/// Throws `SecretServiceFailure` (`parameter`) for text that is not UTF-8.
std::string escaped(std::string_view text);

/// Nothing where `escaped` does not write such a text.
std::optional<std::string> unescaped(std::string_view text);

Attributes identityAttributes(const KeychainIdentity& identity);

/// All attributes of an item.
Attributes attributes(const KeychainItem& item);

/// What to search for: items of the pattern in one of its groups, whatever they demand.
Attributes searchAttributes(const ItemPattern& pattern, const std::string& accessGroup);

/// An item without data; nothing where an attribute is missing or is none of ours.
std::optional<KeychainItem> parsed(const Attributes& attributes);

SecretBytes sealedText(const KeychainItem& item);

/// Fills in the data and what the item demands; false where the text is not one of ours.
bool readSealedText(const SecretBytes& text, KeychainItem& item);

}  // namespace secretItem

}  // namespace platform
