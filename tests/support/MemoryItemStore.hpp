#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"

#include <map>
#include <mutex>
#include <optional>

/// Keeps items in memory, as a store on disk would; one object stands for the disk, so that several
/// keychains over it are several processes.
class MemoryItemStore final : public platform::ItemStore
{
public:
    platform::KeychainStatus add(const platform::KeychainItem& item) override;
    platform::KeychainStatus replace(const platform::ItemPattern& old,
                                     const platform::KeychainItem& item) override;
    platform::KeychainAnswer copyMatching(const platform::ItemPattern& pattern,
                                          platform::ItemContent content,
                                          std::size_t limit) override;
    platform::KeychainStatus deleteMatching(const platform::ItemPattern& pattern) override;
    platform::KeychainStatus update(
        const platform::KeychainIdentity& identity,
        const std::function<std::optional<platform::SecretBytes>(const platform::SecretBytes*)>&
            change) override;

    /// Every call is answered with this status, and does nothing, while it is set.
    void fail(std::optional<platform::KeychainStatus> status);
    /// After so many more calls that write: as for a program that dies there.
    void failAfterWrites(int writes, platform::KeychainStatus status);

    /// Everything that is stored, as it lies there, for a test that tampers with it or looks for
    /// what must not be in it.
    std::map<platform::KeychainIdentity, platform::KeychainItem> items() const;
    void put(platform::KeychainItem item);

private:
    /// The status that a call that writes is answered with, where it fails.
    std::optional<platform::KeychainStatus> writeFailure();
    std::size_t erase(const platform::ItemPattern& pattern);

    mutable std::mutex mutex_;
    std::map<platform::KeychainIdentity, platform::KeychainItem> items_;
    std::optional<platform::KeychainStatus> failure_;
    std::optional<std::pair<int, platform::KeychainStatus>> failureToCome_;
};
