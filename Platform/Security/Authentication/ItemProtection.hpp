#pragma once

#include "Platform/Basics/Diagnostic.hpp"
#include "Platform/Concurrency/Clock.hpp"
#include "Platform/Security/Authentication/Authenticator.hpp"
#include "Platform/Security/Keychain/ItemStore.hpp"

#include <chrono>
#include <memory>

namespace platform
{

class LocalAuthenticationContext;

/// Who can be asked and who is told, for one operation.
struct ProtectionServices
{
    std::shared_ptr<Authenticator> authenticator;
    DiagnosticSink diagnostics;
    std::shared_ptr<Clock> clock;
    /// How long a read waits for the user's answer, and how long for another question to close.
    std::chrono::nanoseconds answerLimit = std::chrono::seconds(60);
};

/// Seals the items that carry an access control, above whichever store keeps them.
///
/// `devicePasscode` is cryptography: the item is sealed to the public half of a key pair whose
/// private half is wrapped under the passcode, so that adding never asks. The other flags are
/// policy: the item says what must be asked, and this asks it. The stored item decides, not the
/// query.
class ItemProtection
{
public:
    explicit ItemProtection(std::shared_ptr<ItemStore> store);

    /// Replaces the item's data by what may be stored, or refuses: `notAvailable` where this
    /// machine cannot protect it. Never asks the user. `couldNotTell` is set where nothing was
    /// refused, but the store could not be read.
    KeychainStatus protect(KeychainItem& item, const ProtectionServices& services,
                           bool* couldNotTell = nullptr);

    /// Replaces the stored data by the value, after the user agreed where the item demands it.
    KeychainStatus release(KeychainItem& item, LocalAuthenticationContext& context,
                           const ProtectionServices& services);

private:
    std::shared_ptr<ItemStore> store_;
};

/// Whether this thread is the one that runs an authenticator, where no store may be used.
bool isAuthenticating() noexcept;

}  // namespace platform
