#pragma once

#include "Platform/Security/Embedded/EmbeddedItemStore.hpp"
#include "Platform/Security/Embedded/StoreFolder.hpp"
#include "tests/support/SecretText.hpp"
#include "tests/support/TemporaryFolder.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A store in a folder of its own, opened as often as a test likes, and what it reported.
struct EmbeddedStoreHost
{
    platform::EmbeddedItemStore::Configuration configuration()
    {
        platform::EmbeddedItemStore::Configuration configuration;
        configuration.dataFolder = places.dataFolder;
        configuration.keyFolder = places.keyFolder;
        configuration.diagnostics = [this](const platform::Diagnostic& diagnostic)
        { diagnostics.push_back(diagnostic); };
        return configuration;
    }

    platform::EmbeddedItemStore open() { return platform::EmbeddedItemStore(configuration()); }

    /// The last report, as one text; empty where there was none. Forgets all.
    std::string reported()
    {
        std::string text;
        for (const auto& diagnostic : std::exchange(diagnostics, {}))
            text = diagnostic.cause + " -> " + diagnostic.nextStep;
        return text;
    }

    static std::string content(const std::filesystem::path& file)
    {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    /// For whole, closed files; the mode stays as it is.
    static void setContent(const std::filesystem::path& file, std::string_view content)
    {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
    }

    TemporaryFolder folder;
    platform::StorePlaces places{folder.path() / "data" / "tessera" / "keychain",
                                 folder.path() / "config" / "tessera"};
    std::vector<platform::Diagnostic> diagnostics;
};

inline platform::KeychainItem itemNamed(std::string account, std::string_view value)
{
    platform::KeychainItem item;
    item.identity = {"service", std::move(account), "group", false};
    item.data = bytes(value);
    return item;
}

inline platform::ItemPattern patternOf(std::string account)
{
    platform::ItemPattern pattern;
    pattern.service = "service";
    pattern.account = std::move(account);
    pattern.accessGroups = {"group"};
    return pattern;
}

inline platform::ItemPattern patternOfAll()
{
    platform::ItemPattern pattern;
    pattern.accessGroups = {"group"};
    return pattern;
}

/// "value" or "= status", for tables and failure messages.
inline std::string valueOf(platform::EmbeddedItemStore& store, const std::string& account)
{
    const auto answer =
        store.copyMatching(patternOf(account), platform::ItemContent::attributesAndData, 1);
    if (answer.status != platform::KeychainStatus::success)
        return "= " + std::to_string(static_cast<int>(answer.status));
    return text(answer.items.at(0).data);
}

inline platform::KeychainStatus put(platform::EmbeddedItemStore& store, const std::string& account,
                                    std::string_view value)
{
    return store.replace(patternOf(account), itemNamed(account, value));
}

/// From a store that is closed afterwards.
inline void keep(EmbeddedStoreHost& host, const std::string& account = "key",
                 std::string_view value = "value")
{
    auto store = host.open();
    if (put(store, account, value) != platform::KeychainStatus::success)
        throw std::runtime_error(host.reported());
}
