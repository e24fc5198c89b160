#include "Platform/Security/SecretService/ItemAttributes.hpp"

#include "Platform/Basics/Wipe.hpp"
#include "Platform/Coding/Base64.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Security/SecretService/SecretServiceFailure.hpp"

#include <algorithm>
#include <span>

namespace platform::secretItem
{
namespace
{

constexpr const char* schemaKey = "xdg:schema";
constexpr const char* serviceKey = "service";
constexpr const char* accountKey = "account";
constexpr const char* accessGroupKey = "accessGroup";
constexpr const char* synchronizableKey = "synchronizable";
constexpr const char* accessibleKey = "accessible";
constexpr const char* accessControlKey = "accessControl";

constexpr std::string_view version = "1";

std::string flag(bool value)
{
    return value ? "true" : "false";
}

std::string number(KeychainAccessible accessible)
{
    return std::to_string(static_cast<unsigned>(accessible));
}

std::string number(AccessControlFlag accessControl)
{
    return std::to_string(static_cast<unsigned>(accessControl));
}

/// The one of `cases` that is written so.
template <class Case, std::size_t count>
bool readCase(std::string_view text, const Case (&cases)[count], Case& value)
{
    const auto* found =
        std::ranges::find_if(cases, [text](Case one) { return number(one) == text; });
    if (found == std::end(cases))
        return false;
    value = *found;
    return true;
}

bool read(std::string_view text, KeychainAccessible& value)
{
    using enum KeychainAccessible;
    static constexpr KeychainAccessible cases[]{kSecAttrAccessibleWhenUnlocked,
                                                kSecAttrAccessibleAfterFirstUnlock,
                                                kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly,
                                                kSecAttrAccessibleWhenUnlockedThisDeviceOnly,
                                                kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly};
    return readCase(text, cases, value);
}

bool read(std::string_view text, AccessControlFlag& value)
{
    using enum AccessControlFlag;
    static constexpr AccessControlFlag cases[]{none, userPresence, anyFingerprint,
                                               currentFingerprintSet, devicePasscode};
    return readCase(text, cases, value);
}

bool read(std::string_view text, bool& value)
{
    value = text == "true";
    return value || text == "false";
}

bool read(std::string_view text, std::string& value)
{
    auto plain = unescaped(text);
    if (plain)
        value = std::move(*plain);
    return plain.has_value();
}

/// The text up to the next colon, which is taken off as well.
std::optional<std::string_view> field(std::string_view& text)
{
    const auto colon = text.find(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    const auto taken = text.substr(0, colon);
    text.remove_prefix(colon + 1);
    return taken;
}

void append(SecretBytes& text, std::string_view part)
{
    text.append(std::as_bytes(std::span(part)));
}

}  // namespace

std::string escaped(std::string_view text)
{
    if (!isValidUTF8(text))
        throw SecretServiceFailure(KeychainStatus::parameter, "A text of the item is not UTF-8",
                                   "Use keys and names in UTF-8");
    std::string out;
    out.reserve(text.size());
    for (const char character : text)
        if (character == '\0')
            out += "%00";
        else if (character == '%')
            out += "%25";
        else
            out += character;
    return out;
}

std::optional<std::string> unescaped(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    while (!text.empty())
    {
        const bool isEscape = text.front() == '%';
        if (!isEscape)
            out += text.front();
        else if (text.starts_with("%00"))
            out += '\0';
        else if (text.starts_with("%25"))
            out += '%';
        else
            return std::nullopt;
        text.remove_prefix(isEscape ? 3 : 1);
    }
    return out;
}

Attributes identityAttributes(const KeychainIdentity& identity)
{
    return {{schemaKey, schema},
            {serviceKey, escaped(identity.service)},
            {accountKey, escaped(identity.account)},
            {accessGroupKey, escaped(identity.accessGroup)},
            {synchronizableKey, flag(identity.synchronizable)}};
}

Attributes attributes(const KeychainItem& item)
{
    auto all = identityAttributes(item.identity);
    all.emplace(accessibleKey, number(item.accessible));
    all.emplace(accessControlKey, number(item.accessControl));
    return all;
}

Attributes searchAttributes(const ItemPattern& pattern, const std::string& accessGroup)
{
    Attributes all{{schemaKey, schema},
                   {accessGroupKey, escaped(accessGroup)},
                   {synchronizableKey, flag(pattern.synchronizable)}};
    if (pattern.service)
        all.emplace(serviceKey, escaped(*pattern.service));
    if (pattern.account)
        all.emplace(accountKey, escaped(*pattern.account));
    return all;
}

std::optional<KeychainItem> parsed(const Attributes& attributes)
{
    KeychainItem item;
    const auto has = [&attributes](const char* key, auto& value)
    {
        const auto place = attributes.find(key);
        return place != attributes.end() && read(place->second, value);
    };
    const auto schemaPlace = attributes.find(schemaKey);
    if (schemaPlace == attributes.end() || schemaPlace->second != schema ||
        !has(serviceKey, item.identity.service) || !has(accountKey, item.identity.account) ||
        !has(accessGroupKey, item.identity.accessGroup) ||
        !has(synchronizableKey, item.identity.synchronizable) ||
        !has(accessibleKey, item.accessible) || !has(accessControlKey, item.accessControl))
        return std::nullopt;
    return item;
}

SecretBytes sealedText(const KeychainItem& item)
{
    // Three bytes make four characters, so that the pieces are the whole's base64.
    constexpr std::size_t piece = std::size_t{3} * 1024;
    SecretBytes text;
    text.reserve(item.data.size() / 3 * 4 + 64);
    append(text, std::string(version) + ":" + number(item.accessible) + ":" +
                     number(item.accessControl) + ":");
    for (auto rest = item.data.view(); !rest.empty();)
    {
        const auto taken = rest.first(std::min(piece, rest.size()));
        rest = rest.subspan(taken.size());
        std::string characters = encodeBase64(taken);
        append(text, characters);
        wipe(characters.data(), characters.size());
    }
    return text;
}

bool readSealedText(const SecretBytes& text, KeychainItem& item)
{
    std::string_view rest(reinterpret_cast<const char*>(text.view().data()), text.size());
    const auto writtenVersion = field(rest);
    const auto accessible = field(rest);
    const auto accessControl = field(rest);
    if (!writtenVersion || *writtenVersion != version || !accessible || !accessControl ||
        !read(*accessible, item.accessible) || !read(*accessControl, item.accessControl))
        return false;
    SecretBytes data;
    data.resize(base64DecodedCapacity(rest.size()));
    const auto size = decodeBase64(rest, data.mutableView());
    if (!size)
        return false;
    data.resize(*size);
    item.data = std::move(data);
    return true;
}

}  // namespace platform::secretItem
