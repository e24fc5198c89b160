#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/EmbeddedFiles.hpp"
#include "tools/tessera/keychain/KeychainRun.hpp"

namespace commandline
{
namespace
{

using platform::KeychainStatus;
using platform::SecretString;

[[noreturn]] void fail(std::string name, std::string message, std::string next,
                       ExitCode exitCode = ExitCode::keychain)
{
    throw Failure({exitCode, std::move(name), std::move(message), std::move(next)});
}

/// Whether the key is under a passphrase; the other keychain has a password of its own.
bool isWrapped(KeychainRun& run)
{
    if (!run.host.embeddedStore())
        fail("noPassphrase", "The Secret Service has a password of its own.",
             "Change it with the desktop's keyring program, or use --keychain embedded.",
             ExitCode::usage);
    return keyIsWrapped(embeddedPlaces());
}

/// Any read opens the store, whether or not it finds something.
KeychainStatus open(KeychainRun& run)
{
    platform::ItemPattern pattern;
    pattern.accessGroups = {run.command.program};
    const auto status =
        run.host.store()->copyMatching(pattern, platform::ItemContent::attributes, 1).status;
    return status == KeychainStatus::itemNotFound ? KeychainStatus::success : status;
}

KeychainResult passphraseStatus(KeychainRun& run)
{
    const bool isSet = isWrapped(run);
    auto result = run.result(isSet ? "The key is wrapped under a passphrase.\n"
                                   : "The key has no passphrase.\n");
    result.isSet = isSet;
    return result;
}

/// What was given by descriptor need not be asked for.
SecretString currentPassphrase(KeychainRun& run)
{
    const auto& given = run.host.givenPassphrase();
    return given ? *given : run.host.asking().current("passphrase");
}

void requirePassphrase(KeychainRun& run, bool isToBeSet)
{
    if (isWrapped(run) == isToBeSet)
        return;
    if (isToBeSet)
        fail("noPassphrase", "The key has no passphrase.",
             "Set one with \"tessera keychain passphrase set\".");
    fail("passphraseSet", "The key has a passphrase already.",
         "Replace it with \"tessera keychain passphrase change\".");
}

void changePassphrase(KeychainRun& run, const std::optional<SecretString>& current,
                      const std::optional<SecretString>& fresh)
{
    check(run.wait(derivingKey,
                   [&] { return run.host.embeddedStore()->changePassphrase(current, fresh); }));
}

KeychainResult setPassphrase(KeychainRun& run)
{
    requirePassphrase(run, false);
    const auto& given = run.host.givenPassphrase();
    const auto fresh = given ? *given : run.host.asking().fresh("passphrase");
    run.host.usePassphrase(fresh);
    // A first key is wrapped as it is made, and never lies there without the passphrase.
    check(run.wait(derivingKey, [&] { return open(run); }));
    if (!isWrapped(run))
        changePassphrase(run, std::nullopt, fresh);
    return run.result("The key is wrapped under the passphrase.\n");
}

KeychainResult replacePassphrase(KeychainRun& run)
{
    requirePassphrase(run, true);
    const auto current = currentPassphrase(run);
    changePassphrase(run, current, run.host.asking().fresh("passphrase"));
    return run.result("The passphrase is changed.\n");
}

KeychainResult removePassphrase(KeychainRun& run)
{
    requirePassphrase(run, true);
    changePassphrase(run, currentPassphrase(run), std::nullopt);
    return run.result("The key is kept without a passphrase.\n");
}

}  // namespace

KeychainResult unlockEmbedded(KeychainRun& run)
{
    if (!isWrapped(run))
        return run.result("There is nothing to unlock: the key has no passphrase.\n");
    check(run.wait("Checking the passphrase", [&] { return open(run); }));
    return run.result("The passphrase is right.\n");
}

KeychainResult performPassphrase(KeychainRun& run)
{
    switch (run.command.verb)
    {
        case KeychainVerb::passphraseSet:
            return setPassphrase(run);
        case KeychainVerb::passphraseChange:
            return replacePassphrase(run);
        case KeychainVerb::passphraseRemove:
            return removePassphrase(run);
        default:
            return passphraseStatus(run);
    }
}

}  // namespace commandline
