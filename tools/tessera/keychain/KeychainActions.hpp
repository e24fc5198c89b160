#pragma once

#include "Platform/Security/SecretBytes.hpp"
#include "tools/tessera/keychain/Doctor.hpp"
#include "tools/tessera/keychain/KeychainHost.hpp"
#include "tools/tessera/keychain/NamedStore.hpp"

#include <optional>
#include <string>
#include <vector>

namespace commandline
{

/// What a command brought about, for printing. What does not belong to the command is absent.
struct KeychainResult
{
    KeychainVerb verb;
    /// What people read; the commands that show something have none.
    std::string sentence = {};
    /// The name that the store's items have in the keychain.
    std::string service = {};
    std::string key = {};
    std::optional<std::vector<StoreSummary>> stores = {};
    std::optional<std::vector<std::string>> keys = {};
    std::optional<platform::SecretBytes> value = {};
    /// Of a passcode or a passphrase.
    std::optional<bool> isSet = {};
    std::optional<Findings> findings = {};
};

/// Carries the command out, asking the person where it must. Throws what `reportOf` understands.
KeychainResult perform(const KeychainCommand& command, KeychainHost& host);

}  // namespace commandline
