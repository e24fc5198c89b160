#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <algorithm>
#include <map>

namespace commandline
{
namespace
{

using platform::AccessControlFlag;
using platform::KeychainAccessible;

constexpr KeychainVerbText verbs[] = {
    {KeychainVerb::list, "", "list", "List the keys of a store or, without one, the stores"},
    {KeychainVerb::get, "", "get", "Write a value to standard output"},
    {KeychainVerb::set, "", "set", "Keep the value that is read from standard input"},
    {KeychainVerb::remove, "", "remove", "Remove one item of a store, or all"},
    {KeychainVerb::unlock, "", "unlock",
     "Unlock the keychain: through the Secret Service's own prompt, or by checking the passphrase"},
    {KeychainVerb::passcodeStatus, "passcode", "status", "Tell whether a passcode is set"},
    {KeychainVerb::passcodeSet, "passcode", "set", "Set the first passcode"},
    {KeychainVerb::passcodeChange, "passcode", "change",
     "Replace the passcode; what it protects stays readable with the new one"},
    {KeychainVerb::passcodeRemove, "passcode", "remove",
     "Remove the passcode; what it protects can never be read again"},
    {KeychainVerb::passphraseStatus, "passphrase", "status", "Tell whether the key has one"},
    {KeychainVerb::passphraseSet, "passphrase", "set", "Wrap the key under a passphrase"},
    {KeychainVerb::passphraseChange, "passphrase", "change",
     "Replace the passphrase; no item is sealed anew"},
    {KeychainVerb::passphraseRemove, "passphrase", "remove", "Keep the key without a passphrase"},
    {KeychainVerb::doctor, "", "doctor",
     "Look for faults and tell what to do about each; changes nothing"},
};

template <class Value>
std::string nameIn(const NamesOf<Value>& names, Value value)
{
    for (const auto& [name, named] : names)
        if (named == value)
            return name;
    return "unknown";
}

}  // namespace

std::span<const KeychainVerbText> keychainVerbs()
{
    return verbs;
}

std::string words(KeychainVerb verb)
{
    const auto& text = *std::ranges::find(verbs, verb, &KeychainVerbText::verb);
    const std::string parent = text.parent;
    return "keychain " + parent + (parent.empty() ? "" : " ") + text.word;
}

std::string_view word(KeychainKind kind)
{
    return kind == KeychainKind::embedded ? "embedded" : "secret-service";
}

const NamesOf<KeychainAccessible>& accessibilityNames()
{
    using enum KeychainAccessible;
    static const NamesOf<KeychainAccessible> names{
        {"whenUnlocked", kSecAttrAccessibleWhenUnlocked},
        {"afterFirstUnlock", kSecAttrAccessibleAfterFirstUnlock},
        {"whenPasscodeSetThisDeviceOnly", kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly},
        {"whenUnlockedThisDeviceOnly", kSecAttrAccessibleWhenUnlockedThisDeviceOnly},
        {"afterFirstUnlockThisDeviceOnly", kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly}};
    return names;
}

const NamesOf<AccessControlFlag>& accessControlNames()
{
    using enum AccessControlFlag;
    static const NamesOf<AccessControlFlag> names{{"userPresence", userPresence},
                                                  {"anyFingerprint", anyFingerprint},
                                                  {"currentFingerprintSet", currentFingerprintSet},
                                                  {"devicePasscode", devicePasscode}};
    return names;
}

std::string nameOf(KeychainAccessible accessible)
{
    return nameIn(accessibilityNames(), accessible);
}

std::string nameOf(AccessControlFlag flag)
{
    return nameIn(accessControlNames(), flag);
}

}  // namespace commandline
