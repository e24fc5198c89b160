#include "Platform/Security/Authentication/Passcode.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Security/Authentication/PasscodeVault.hpp"

#include <new>
#include <utility>

namespace platform
{
namespace
{

constexpr std::size_t longestPasscode = 1024;

void refuseInsideAuthenticator()
{
    if (isAuthenticating())
        fatal("An authenticator must not use the passcode: it is asked while a store waits for it");
}

KeychainStatus checked(const SecretString& passcode, const ProtectionServices& services)
{
    if (!passcode.empty() && passcode.size() <= longestPasscode && isValidUTF8(passcode.view()))
        return KeychainStatus::success;
    report(services.diagnostics, "passcode",
           "The new passcode is empty, longer than 1024 bytes, or not UTF-8.",
           "Choose another passcode.");
    return KeychainStatus::parameter;
}

}  // namespace

Passcode::Passcode(std::shared_ptr<ItemStore> store, std::function<ProtectionServices()> services,
                   PasscodeCost cost)
    : store_(std::move(store)), services_(std::move(services)), cost_(cost)
{}

Passcode::Answer Passcode::isSet() const
{
    refuseInsideAuthenticator();
    const auto services = services_();
    const auto status = PasscodeVault(*store_, services).read().status;
    if (status == KeychainStatus::itemNotFound)
        return {};
    return {.status = status, .isSet = status == KeychainStatus::success};
}

KeychainStatus Passcode::set(const SecretString& passcode)
{
    refuseInsideAuthenticator();
    const auto services = services_();
    const PasscodeVault vault(*store_, services);
    if (const auto status = checked(passcode, services); status != KeychainStatus::success)
        return status;
    // Looked at first, to be spared the cost; the one that counts is in `add`.
    if (const auto status = vault.read().status; status != KeychainStatus::itemNotFound)
        return status == KeychainStatus::success ? KeychainStatus::duplicateItem : status;
    try
    {
        return vault.add(PasscodeRecord::make(passcode, cost_));
    }
    catch (const std::bad_alloc&)
    {
        return vault.tooLittleMemory();
    }
}

KeychainStatus Passcode::change(const SecretString& old, const SecretString& replacement)
{
    refuseInsideAuthenticator();
    const auto services = services_();
    const PasscodeVault vault(*store_, services);
    if (const auto status = checked(replacement, services); status != KeychainStatus::success)
        return status;
    const auto opened = vault.open(old);
    if (opened.status != KeychainStatus::success)
        return opened.status;
    try
    {
        const auto rewrapped = PasscodeRecord::rewrap(*opened.key, replacement, cost_);
        return vault.replace(opened.record, &rewrapped);
    }
    catch (const std::bad_alloc&)
    {
        return vault.tooLittleMemory();
    }
}

KeychainStatus Passcode::remove(const SecretString& old)
{
    refuseInsideAuthenticator();
    const auto services = services_();
    const PasscodeVault vault(*store_, services);
    const auto opened = vault.open(old);
    return opened.status == KeychainStatus::success ? vault.replace(opened.record, nullptr)
                                                    : opened.status;
}

}  // namespace platform
