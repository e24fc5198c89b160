#include "Platform/Security/Authentication/Passcode.hpp"
#include "Platform/Services/Services.hpp"
#include "tools/tessera/Failure.hpp"
#include "tools/tessera/keychain/KeychainRun.hpp"

namespace commandline
{
namespace
{

using platform::KeychainStatus;

[[noreturn]] void fail(std::string name, std::string message, std::string next,
                       ExitCode exitCode = ExitCode::keychain)
{
    throw Failure({exitCode, std::move(name), std::move(message), std::move(next)});
}

platform::Passcode passcodeOf(const KeychainRun& run)
{
    return {run.host.store(), []
            {
                const auto now = platform::services();
                return platform::ProtectionServices{now.authenticator, now.diagnostics, now.clock};
            }};
}

bool passcodeIsSet(KeychainRun& run)
{
    const auto passcode = passcodeOf(run);
    const auto answer = run.waitForKeychain([&] { return passcode.isSet(); });
    check(answer.status);
    return answer.isSet;
}

void checkPasscode(KeychainStatus status)
{
    if (status == KeychainStatus::authenticationFailed)
        fail("wrongPasscode", "The passcode is wrong, or too many were tried before it.",
             "Wait a while and run the command again.", ExitCode::declined);
    if (status == KeychainStatus::parameter)
        fail("unusablePasscode", "This cannot be a passcode.",
             "Choose a text of 1 to 1024 bytes in UTF-8.", ExitCode::usage);
    if (status == KeychainStatus::duplicateItem)
        fail("passcodeSet", "A passcode is set already.",
             "Replace it with \"tessera keychain passcode change\".");
    if (status == KeychainStatus::itemNotFound)
        fail("noPasscode", "No passcode is set.",
             "Set one with \"tessera keychain passcode set\".");
    check(status);
}

KeychainResult passcodeStatus(KeychainRun& run)
{
    const bool isSet = passcodeIsSet(run);
    auto result = run.result(isSet ? "A passcode is set.\n" : "No passcode is set.\n");
    result.isSet = isSet;
    return result;
}

KeychainResult setPasscode(KeychainRun& run)
{
    if (passcodeIsSet(run))
        checkPasscode(KeychainStatus::duplicateItem);
    const auto fresh = run.host.asking().fresh("passcode");
    auto passcode = passcodeOf(run);
    checkPasscode(run.wait(derivingKey, [&] { return passcode.set(fresh); }));
    return run.result("The passcode is set.\n");
}

KeychainResult changePasscode(KeychainRun& run)
{
    if (!passcodeIsSet(run))
        checkPasscode(KeychainStatus::itemNotFound);
    const auto current = run.host.asking().current("passcode");
    const auto fresh = run.host.asking().fresh("passcode");
    auto passcode = passcodeOf(run);
    checkPasscode(run.wait(derivingKey, [&] { return passcode.change(current, fresh); }));
    return run.result("The passcode is changed.\n");
}

KeychainResult removePasscode(KeychainRun& run)
{
    if (!passcodeIsSet(run))
        checkPasscode(KeychainStatus::itemNotFound);
    run.host.asking().confirm(
        "What the passcode protects can never be read again once it is removed.", "remove");
    const auto current = run.host.asking().current("passcode");
    auto passcode = passcodeOf(run);
    checkPasscode(run.wait(derivingKey, [&] { return passcode.remove(current); }));
    return run.result("The passcode is removed. What it protected can never be read again.\n");
}

}  // namespace

KeychainResult performPasscode(KeychainRun& run)
{
    switch (run.command.verb)
    {
        case KeychainVerb::passcodeSet:
            return setPasscode(run);
        case KeychainVerb::passcodeChange:
            return changePasscode(run);
        case KeychainVerb::passcodeRemove:
            return removePasscode(run);
        default:
            return passcodeStatus(run);
    }
}

}  // namespace commandline
