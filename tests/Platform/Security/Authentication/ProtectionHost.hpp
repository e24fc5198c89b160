#pragma once

#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Platform/Security/Authentication/Passcode.hpp"
#include "tests/Platform/Security/Authentication/ScriptedAuthenticator.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/MemoryItemStore.hpp"
#include "tests/support/SecretText.hpp"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

inline constexpr std::uint64_t nanosecondsPerSecond = 1'000'000'000;

/// A machine with a store, a clock and a user; passcodes cost next to nothing.
struct ProtectionHost
{
    std::shared_ptr<MemoryItemStore> store = std::make_shared<MemoryItemStore>();
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    std::shared_ptr<ScriptedAuthenticator> user = std::make_shared<ScriptedAuthenticator>();
    platform::Passcode passcode = anotherPasscode();
    platform::ItemProtection protection{store};

    /// Takes the place of the clock that stands still.
    std::shared_ptr<platform::Clock> realClock;
    std::chrono::nanoseconds answerLimit = platform::ProtectionServices().answerLimit;

    platform::ProtectionServices services()
    {
        platform::ProtectionServices made;
        made.authenticator = user;
        made.clock = realClock ? realClock : clock;
        made.answerLimit = answerLimit;
        made.diagnostics = [this](const platform::Diagnostic& diagnostic)
        {
            const std::lock_guard lock(mutex_);
            diagnostics_.push_back(diagnostic);
        };
        return made;
    }

    /// As another program would hold it.
    platform::Passcode anotherPasscode()
    {
        return {store, [this] { return services(); }, {.operations = 1, .memory = 8192}};
    }

    std::vector<platform::Diagnostic> takeDiagnostics()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(diagnostics_, {});
    }

    static platform::KeychainItem item(platform::AccessControlFlag flag,
                                       std::string_view value = "the value")
    {
        platform::KeychainItem made;
        made.identity = {.service = "service",
                         .account = "key",
                         .accessGroup = "program",
                         .synchronizable = false};
        made.accessible =
            platform::KeychainAccessible::kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly;
        made.accessControl = flag;
        made.data = bytes(value);
        return made;
    }

    platform::KeychainItem stored(platform::AccessControlFlag flag,
                                  std::string_view value = "the value")
    {
        auto made = item(flag, value);
        if (protection.protect(made, services()) != platform::KeychainStatus::success)
            made.data.clear();
        return made;
    }

    platform::KeychainStatus read(platform::KeychainItem stored,
                                  platform::LocalAuthenticationContext& context)
    {
        return protection.release(stored, context, services());
    }
    platform::KeychainStatus readAlone(platform::KeychainItem stored)
    {
        platform::LocalAuthenticationContext context;
        return read(std::move(stored), context);
    }

private:
    std::mutex mutex_;
    std::vector<platform::Diagnostic> diagnostics_;
};
