#pragma once

#include "tools/tessera/keychain/KeychainActions.hpp"

#include <string>
#include <utility>

namespace commandline
{

/// One command on its way.
struct KeychainRun
{
    const KeychainCommand& command;
    KeychainHost& host;

    /// Work on the keychain; its outcome.
    template <class Work>
    auto wait(const std::string& what, Work work)
    {
        return host.work().run<decltype(work())>(what, std::move(work));
    }
    template <class Work>
    auto waitForKeychain(Work work)
    {
        return wait("Waiting for the keychain", std::move(work));
    }

    KeychainResult result(std::string sentence = {}) const
    {
        return {.verb = command.verb, .sentence = std::move(sentence)};
    }
    KeychainResult result(const NamedStore& store, std::string sentence) const
    {
        auto made = result(std::move(sentence));
        made.service = store.service();
        made.key = command.key;
        return made;
    }
};

// The parts of `perform`, which throw what it throws.

KeychainResult performPasscode(KeychainRun& run);
KeychainResult performPassphrase(KeychainRun& run);
KeychainResult unlockEmbedded(KeychainRun& run);

/// What the person is told while a passcode or a passphrase is tried.
constexpr auto derivingKey = "Deriving a key";

}  // namespace commandline
