#pragma once

#include "Platform/Security/Keychain/StoreKeychain.hpp"
#include "Valet/KeychainError.hpp"
#include "tests/support/ManualClock.hpp"
#include "tests/support/MemoryItemStore.hpp"
#include "tests/support/ScriptedKeychain.hpp"
#include "tests/support/SecretText.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

/// A keychain in memory with the real rules, seen through a twin that records the calls.
struct KeychainForTest
{
    std::shared_ptr<MemoryItemStore> items = std::make_shared<MemoryItemStore>();
    platform::ProtectionServices protection{
        .authenticator = nullptr, .diagnostics = nullptr, .clock = std::make_shared<ManualClock>()};
    std::shared_ptr<ScriptedKeychain> keychain = std::make_shared<ScriptedKeychain>(
        std::make_shared<platform::StoreKeychain>(items, [this] { return surroundings(); }));

    platform::KeychainSurroundings surroundings() const
    {
        return {.program = {.identifier = "org.example.tests", .accessGroups = {}},
                .protection = protection};
    }

    KeychainForTest() = default;
    KeychainForTest(const KeychainForTest&) = delete;
    KeychainForTest& operator=(const KeychainForTest&) = delete;
};

/// How an operation failed; nothing where it did not.
template <class Operation>
std::optional<valet::KeychainErrorCase> failure(const Operation& operation)
{
    try
    {
        (void)operation();
        return std::nullopt;
    }
    catch (const valet::KeychainError& error)
    {
        return error.errorCase();
    }
}

/// What a keychain hands out for a read.
inline platform::KeychainAnswer holding(std::string_view data)
{
    platform::KeychainAnswer answer;
    answer.items.emplace_back();
    answer.items.front().data = bytes(data);
    return answer;
}

namespace valet
{

inline void PrintTo(KeychainErrorCase errorCase, std::ostream* out)
{
    *out << KeychainError(errorCase).what();
}

}  // namespace valet
