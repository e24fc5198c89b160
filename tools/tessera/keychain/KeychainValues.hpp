#pragma once

#include "tools/tessera/keychain/KeychainCommand.hpp"

#include <optional>
#include <string>

namespace commandline
{

/// What the command line says about the keychain, word for word: absent is what it does not say.
struct KeychainValues
{
    std::optional<std::string> keychain;
    std::optional<std::string> program;
    std::optional<std::string> identifier, service, group;
    std::optional<std::string> accessibility, accessControl;
    std::optional<std::string> key;
    std::optional<std::string> passphraseDescriptor, passcodeDescriptor;
    std::optional<std::string> prompt;
    bool keyIsEscaped = false;
    bool singlePrompt = false;
    bool synchronizable = false;
    bool all = false;
    bool confirmed = false;
    bool force = false;
    bool json = false;
};

/// The command that the values make. Throws `Failure` of the class `usage`, in which no value is
/// repeated: people put secrets in the wrong place.
KeychainCommand commandFrom(KeychainVerb verb, const KeychainValues& values);

bool takesStore(KeychainVerb verb);
bool takesKey(KeychainVerb verb);

}  // namespace commandline
