#pragma once

#include "Platform/Security/Keychain/KeychainItem.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace commandline
{

enum class KeychainVerb
{
    list,
    get,
    set,
    remove,
    unlock,
    passcodeStatus,
    passcodeSet,
    passcodeChange,
    passcodeRemove,
    passphraseStatus,
    passphraseSet,
    passphraseChange,
    passphraseRemove,
    doctor,
};

/// A subcommand, or one below a subcommand.
struct KeychainVerbText
{
    KeychainVerb verb;
    /// Empty for the former.
    const char* parent;
    const char* word;
    const char* description;
};

std::span<const KeychainVerbText> keychainVerbs();

/// The words on the command line and in JSON: "keychain passcode set".
std::string words(KeychainVerb verb);

enum class KeychainKind
{
    embedded,
    secretService,
};

/// As `--keychain` takes it: "secret-service".
std::string_view word(KeychainKind kind);

/// What a name on the command line stands for, in the order of help.
template <class Value>
using NamesOf = std::vector<std::pair<std::string, Value>>;

const NamesOf<platform::KeychainAccessible>& accessibilityNames();
const NamesOf<platform::AccessControlFlag>& accessControlNames();

std::string nameOf(platform::KeychainAccessible accessible);
std::string nameOf(platform::AccessControlFlag flag);

/// A shared group: what stands before the first dot of `--group`, and what stands after it.
struct GroupName
{
    std::string prefix;
    std::string identifier;

    std::string accessGroup() const { return prefix + "." + identifier; }
};

/// Which store a person means. Nothing of it set: none.
struct StoreSelection
{
    std::optional<std::string> identifier;
    /// The service name as it stands.
    std::optional<std::string> service;
    std::optional<GroupName> group;
    platform::KeychainAccessible accessible =
        platform::KeychainAccessible::kSecAttrAccessibleWhenUnlocked;
    /// Absent: a store that asks nobody.
    std::optional<platform::AccessControlFlag> accessControl;
    bool singlePrompt = false;
    bool synchronizable = false;

    bool isNamed() const { return identifier || service || group; }
};

/// What a person asked of the keychain, understood and complete, but nothing was opened yet.
struct KeychainCommand
{
    KeychainVerb verb = KeychainVerb::list;
    KeychainKind kind = KeychainKind::embedded;
    /// Why this keychain: "--keychain", "TESSERA_KEYCHAIN" or "default".
    std::string chosenBy = "default";
    std::string program = "net.ostra.tessera";
    StoreSelection store;
    bool json = false;

    std::string key;
    bool all = false;
    /// Nobody is to be asked whether to remove.
    bool confirmed = false;
    /// Binary values may go to a terminal.
    bool force = false;
    /// What the user is told when a protected value is read.
    std::string prompt;

    /// Where the passphrase of the key file and the passcode come from; absent: the terminal.
    std::optional<int> passphraseDescriptor;
    std::optional<int> passcodeDescriptor;
};

}  // namespace commandline
