#pragma once

#include "Platform/Security/SecretService/SecretServiceItemStore.hpp"
#include "tests/support/GBusForTest.hpp"
#include "tests/support/SecretServiceForTest.hpp"
#include "tests/support/SecretText.hpp"

#include <array>
#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

/// Keeps what a store reports.
class Diagnostics
{
public:
    platform::DiagnosticSink sink()
    {
        return [this](const platform::Diagnostic& one)
        {
            const std::lock_guard lock(mutex_);
            all_.push_back(one);
        };
    }

    /// What was reported since the last call.
    std::vector<platform::Diagnostic> taken()
    {
        const std::lock_guard lock(mutex_);
        return std::exchange(all_, {});
    }

private:
    std::mutex mutex_;
    std::vector<platform::Diagnostic> all_;
};

inline platform::KeychainItem item(std::string account, std::string_view value)
{
    return {{"a service", std::move(account), "a group", false},
            platform::KeychainAccessible::kSecAttrAccessibleAfterFirstUnlock,
            platform::AccessControlFlag::none,
            bytes(value)};
}

inline platform::ItemPattern patternOf(const platform::KeychainItem& item)
{
    return {item.identity.service,        item.identity.account, {item.identity.accessGroup},
            item.identity.synchronizable, item.accessible,       {}};
}

/// What such an item looks like on the bus.
inline GBusForTest::Attributes attributesOf(const std::string& account)
{
    return {{"xdg:schema", "net.ostra.Tessera.Item"},
            {"service", "a service"},
            {"account", account},
            {"accessGroup", "a group"},
            {"synchronizable", "false"},
            {"accessible", "2"},
            {"accessControl", "0"}};
}

/// The value of the one item of that account, or the status in brackets.
inline std::string valueOf(platform::ItemStore& store, const std::string& account)
{
    const auto answer = store.copyMatching(patternOf(item(account, "")),
                                           platform::ItemContent::attributesAndData, 1);
    if (answer.status != platform::KeychainStatus::success)
        return "[" + std::to_string(static_cast<int>(answer.status)) + "]";
    return text(answer.items.at(0).data);
}

/// A keyring of its own for each test.
class SecretServiceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!PrivateSecretService::isInstalled())
            GTEST_SKIP() << "dbus-daemon and gnome-keyring-daemon are not installed";
        service_.emplace();
    }

    platform::SecretServiceItemStore::Configuration configuration()
    {
        return {.diagnostics = diagnostics_.sink(),
                .lockFolder = service_->lockFolder(),
                .busAddress = service_->busAddress()};
    }

    Diagnostics diagnostics_;
    std::optional<PrivateSecretService> service_;
};
