#include "tools/tessera/keychain/KeychainActions.hpp"

#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"
#include "tools/shared/Terminal.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/Escaping.hpp"
#include "tools/tessera/keychain/KeychainRun.hpp"

#include <unistd.h>

namespace commandline
{
namespace
{

using platform::SecretBytes;
using platform::SecretString;

KeychainResult list(KeychainRun& run)
{
    if (!run.command.store.isNamed())
    {
        auto result = run.result();
        result.stores = run.waitForKeychain([&] { return visibleStores(*run.host.keychain()); });
        return result;
    }
    const NamedStore store(run.command.store);
    auto result = run.result(store, "");
    result.keys = run.waitForKeychain([&] { return store.keys(); });
    return result;
}

/// A terminal takes control characters for commands.
void refuseBinary(const SecretBytes& value)
{
    const SecretString text(value);
    if (isTerminal(STDOUT_FILENO) && !isPlainText(text.view()))
        throw Failure({ExitCode::usage, "binaryValue",
                       "The value is not plain text, and a terminal might obey it.",
                       "Send it to a file or a pipe, or use --force."});
}

KeychainResult get(KeychainRun& run)
{
    const NamedStore store(run.command.store);
    auto result = run.result(store, "");
    result.value =
        run.waitForKeychain([&] { return store.get(run.command.key, run.command.prompt); });
    if (!run.command.json && !run.command.force)
        refuseBinary(*result.value);
    return result;
}

KeychainResult set(KeychainRun& run)
{
    const NamedStore store(run.command.store);
    auto value = run.host.asking().value();
    run.waitForKeychain([&] { store.set(std::move(value), run.command.key); });
    return run.result(store, "The item is kept.\n");
}

KeychainResult remove(KeychainRun& run)
{
    const NamedStore store(run.command.store);
    if (run.command.all)
    {
        run.host.asking().confirm(
            "This removes all items of the store " + escaped(store.service()) + " for good.",
            "remove");
        run.waitForKeychain([&] { store.removeAll(); });
        return run.result(store, "The store is empty.\n");
    }
    run.waitForKeychain([&] { store.remove(run.command.key); });
    return run.result(store, "The item is gone.\n");
}

KeychainResult unlock(KeychainRun& run)
{
    if (run.host.embeddedStore())
        return unlockEmbedded(run);
    check(run.wait("Waiting for the prompt of the Secret Service",
                   [&] { return run.host.secretServiceStore()->unlock(); }));
    return run.result("The Secret Service is unlocked.\n");
}

KeychainResult doctor(KeychainRun& run)
{
    auto result = run.result();
    result.findings =
        run.wait("Looking at the keychain", [&] { return examine(run.command, run.host); });
    return result;
}

}  // namespace

KeychainResult perform(const KeychainCommand& command, KeychainHost& host)
{
    host.readGivenPassphrase();
    KeychainRun run{command, host};
    switch (command.verb)
    {
        case KeychainVerb::list:
            return list(run);
        case KeychainVerb::get:
            return get(run);
        case KeychainVerb::set:
            return set(run);
        case KeychainVerb::remove:
            return remove(run);
        case KeychainVerb::unlock:
            return unlock(run);
        case KeychainVerb::doctor:
            return doctor(run);
        case KeychainVerb::passcodeStatus:
        case KeychainVerb::passcodeSet:
        case KeychainVerb::passcodeChange:
        case KeychainVerb::passcodeRemove:
            return performPasscode(run);
        case KeychainVerb::passphraseStatus:
        case KeychainVerb::passphraseSet:
        case KeychainVerb::passphraseChange:
        case KeychainVerb::passphraseRemove:
            return performPassphrase(run);
    }
    throw Failure({ExitCode::internal, "internal", "The command is not known.", "See --help."});
}

}  // namespace commandline
