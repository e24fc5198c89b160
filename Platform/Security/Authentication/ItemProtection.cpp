#include "Platform/Security/Authentication/ItemProtection.hpp"

#include "Platform/Security/Authentication/ItemEnvelope.hpp"
#include "Platform/Security/Authentication/PasscodeVault.hpp"
#include "Platform/Security/Authentication/UserConsent.hpp"

#include <utility>

namespace platform
{
namespace
{

KeychainStatus refuse(const ProtectionServices& services, KeychainStatus status, std::string cause,
                      std::string nextStep)
{
    report(services.diagnostics, "authentication", std::move(cause), std::move(nextStep));
    return status;
}

/// Presence and fingerprints: the host's word counts, as long as the fingers are the same.
class HostDemand final : public Demand
{
public:
    HostDemand(const ItemEnvelope& envelope, const ProtectionServices& services)
        : Demand(envelope.demanded), envelope_(envelope), services_(services)
    {}

    KeychainStatus prepare() override { return KeychainStatus::success; }

    bool counts(const Agreement& earlier) override
    {
        return earlier.fingerprints == enrolled() && isReadable();
    }

    KeychainStatus mayAsk() override
    {
        if (isReadable())
            return KeychainStatus::success;
        return refuse(services_, KeychainStatus::notAvailable,
                      "The enrolled fingerprints are not the ones that the item was stored with.",
                      "The item cannot be read any more; remove it and store its value again.");
    }

    KeychainStatus judge(const SecretString&, Agreement& agreement) override
    {
        agreement.fingerprints = enrolled();
        return mayAsk();
    }

private:
    std::optional<std::string> enrolled() const
    {
        return flag() == AccessControlFlag::userPresence
                   ? std::nullopt
                   : enrolledFingerprints(services_.authenticator);
    }
    bool isReadable() const
    {
        return flag() != AccessControlFlag::currentFingerprintSet ||
               enrolled() == envelope_.fingerprints;
    }

    const ItemEnvelope& envelope_;
    const ProtectionServices& services_;
};

/// The passcode: what the user enters opens the key that the item was sealed to.
class PasscodeDemand final : public Demand
{
public:
    PasscodeDemand(const PasscodeVault& vault, const ItemEnvelope& envelope,
                   const ProtectionServices& services)
        : Demand(AccessControlFlag::devicePasscode),
          vault_(vault),
          envelope_(envelope),
          services_(services)
    {}

    KeychainStatus prepare() override
    {
        found_ = vault_.read();
        if (found_.status == KeychainStatus::success && !isOfThisItem(found_))
            return gone();
        return explained(found_.status);
    }

    bool counts(const Agreement& earlier) override
    {
        return earlier.key->wrapping == found_.record.wrapping;
    }

    KeychainStatus mayAsk() override { return explained(vault_.mayTry()); }

    KeychainStatus judge(const SecretString& passcode, Agreement& agreement) override
    {
        // It can never be right, so it costs the user no try.
        if (passcode.empty())
            return refuse(services_, KeychainStatus::authenticationFailed,
                          "The authenticator confirmed without a passcode.",
                          "Let it answer with what the user entered.");
        auto opened = vault_.open(passcode);
        if (opened.status != KeychainStatus::success)
            return explained(opened.status);
        if (!isOfThisItem(opened))
            return gone();
        agreement.key = std::move(opened.key);
        return KeychainStatus::success;
    }

private:
    bool isOfThisItem(const PasscodeVault::Found& found) const
    {
        return found.record.pair == envelope_.pair;
    }

    /// The record may go while the item is being read.
    KeychainStatus explained(KeychainStatus status) const
    {
        return status == KeychainStatus::itemNotFound ? gone() : status;
    }
    KeychainStatus gone() const
    {
        return refuse(services_, KeychainStatus::notAvailable,
                      "The item was sealed to a passcode that has been removed.",
                      "It cannot be read any more; remove it and store its value again.");
    }

    const PasscodeVault& vault_;
    const ItemEnvelope& envelope_;
    const ProtectionServices& services_;
    PasscodeVault::Found found_;
};

KeychainStatus seal(KeychainItem& item, ItemStore& store, const ProtectionServices& services,
                    bool* couldNotTell)
{
    const auto found = PasscodeVault(store, services).read();
    if (found.status == KeychainStatus::itemNotFound)
        return refuse(services, KeychainStatus::notAvailable,
                      "The item demands a passcode, and none is set.", "Set a passcode first.");
    if (found.status == KeychainStatus::success)
        item.data = ItemEnvelope::sealed(item, found.record);
    else if (couldNotTell)
        *couldNotTell = true;
    return found.status;
}

}  // namespace

ItemProtection::ItemProtection(std::shared_ptr<ItemStore> store) : store_(std::move(store)) {}

KeychainStatus ItemProtection::protect(KeychainItem& item, const ProtectionServices& services,
                                       bool* couldNotTell)
{
    switch (item.accessControl)
    {
        case AccessControlFlag::none:
            return KeychainStatus::success;
        case AccessControlFlag::devicePasscode:
            return seal(item, *store_, services, couldNotTell);
        case AccessControlFlag::userPresence:
        case AccessControlFlag::anyFingerprint:
        case AccessControlFlag::currentFingerprintSet:
            break;
        default:
            return KeychainStatus::parameter;
    }

    if (!offers(services.authenticator, item.accessControl))
        return refuse(services, KeychainStatus::notAvailable,
                      "This program could never ask the user for what the item demands.",
                      "Name an authenticator that offers it in the services.");
    std::string fingerprints;
    if (item.accessControl == AccessControlFlag::currentFingerprintSet)
    {
        const auto enrolled = enrolledFingerprints(services.authenticator);
        if (!enrolled)
            return refuse(services, KeychainStatus::notAvailable,
                          "The item demands the fingerprints of today, and none are enrolled.",
                          "Enrol a fingerprint first.");
        fingerprints = *enrolled;
    }
    item.data = ItemEnvelope::closed(item, fingerprints);
    return KeychainStatus::success;
}

KeychainStatus ItemProtection::release(KeychainItem& item, LocalAuthenticationContext& context,
                                       const ProtectionServices& services)
{
    if (item.accessControl == AccessControlFlag::none)
        return KeychainStatus::success;

    ItemEnvelope envelope;
    const auto read = ItemEnvelope::read(item, envelope);
    if (read != KeychainStatus::success)
        return refuse(
            services, read,
            "What is stored does not say what the item demands, or is of a later version.",
            "Update the program, or restore the store from a copy.");

    // Held here: a context may be given up while a read waits in it.
    const auto state = context.state();
    UserConsent consent(*state, services);
    const PasscodeVault vault(*store_, services);
    PasscodeDemand passcode(vault, envelope, services);
    HostDemand host(envelope, services);
    const bool isSealed = envelope.demanded == AccessControlFlag::devicePasscode;
    Agreement agreement;
    const auto status = consent.get(isSealed ? static_cast<Demand&>(passcode) : host, agreement);
    if (status != KeychainStatus::success)
        return status;

    auto value = isSealed ? envelope.unsealed(item, *agreement.key)
                          : std::optional(SecretBytes(envelope.content));
    if (!value)
        return refuse(services, KeychainStatus::damaged,
                      "The sealed value is damaged, or belongs to another item.",
                      "Remove the item, or restore the store from a copy.");
    item.data = std::move(*value);
    return KeychainStatus::success;
}

}  // namespace platform
