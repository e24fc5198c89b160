#pragma once

#include "tools/tessera/keychain/KeychainHost.hpp"
#include "tools/tessera/keychain/SecretServiceLook.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace platform
{
struct StorePlaces;
}

namespace commandline
{

/// One thing that was looked at.
struct Finding
{
    enum class State
    {
        good,
        /// Worth knowing, and no fault.
        note,
        fault,
    };

    /// For scripts, stable: "embedded.dataFolder".
    std::string name;
    State state = State::good;
    std::string text;
    /// Of a fault: what to do about it.
    std::string next = {};
};

using Findings = std::vector<Finding>;

std::string_view word(Finding::State state);

bool hasFault(const Findings& findings);

/// A fault that a layer below has told of.
Finding faultFrom(std::string name, const platform::Diagnostic& diagnostic);

/// "1 item", "2 items".
std::string counted(std::uint64_t count, const std::string& what);

/// Looks at the keychain in use, and at what else of this program's kind there is, and changes
/// nothing: neither makes folders, keys or canaries, nor starts services, nor asks the user for
/// more than the passphrase.
Findings examine(const KeychainCommand& command, KeychainHost& host);

// Its parts, in the order in which they are told.

/// The embedded keychain's folders and files, as they are without being opened. False where what
/// stands there cannot be used.
bool examineFiles(const platform::StorePlaces& places, Findings& findings);

/// The library, the bus, the service and its default collection. `inUse`: what is missing is a
/// fault.
void examineSecretService(bool inUse, const SecretServiceFacts& facts, Findings& findings);

/// What the stores in `keychain` hold and whether their canaries do. With a store named: of that
/// one alone.
void examineStores(const KeychainCommand& command, platform::Keychain& keychain, DiagnosticLog& log,
                   Findings& findings);

}  // namespace commandline
