#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"
#include "Platform/Security/SecretService/ItemAttributes.hpp"
#include "Platform/Security/SecretService/SecretConnection.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform
{

/// An item as the service shows it.
struct SecretItemRecord
{
    std::string path;
    std::uint64_t modified = 0;
    std::uint64_t created = 0;
    /// Without data.
    KeychainItem item;
    /// Whether it has no secret at all, which is known once the data were read: a service that was
    /// killed while it made the item leaves it so. It was never acknowledged, and counts for
    /// nothing.
    bool unfinished = false;
};

/// The calls of the Secret Service's interface that a store makes, with their answers checked: what
/// does not look as it must is a failure, never an empty answer. Lives for one piece of work on the
/// GLib thread. Every function throws `SecretServiceFailure`.
class SecretItems
{
public:
    SecretItems(SecretConnection& connection, const GWork& at) : connection_(connection), at_(at)
    {
        connection_.open(at_);
    }

    /// The paths of the items that have these attributes, for each search by itself. An item that
    /// is locked is a failure.
    std::vector<std::vector<std::string>> search(
        const std::vector<secretItem::Attributes>& searches);

    /// What the service tells about the items; nothing where one has gone.
    std::vector<std::optional<SecretItemRecord>> properties(const std::vector<std::string>& paths);

    /// Fills in the data of the items; false where one has gone.
    bool readData(std::vector<SecretItemRecord>& records);

    /// Fails unless every collection is unlocked, for an item that is looked for could be in any of
    /// them: the user may have chosen another default since. False if `searches`, which found
    /// nothing before, find something now.
    bool isNothingHidden(const std::vector<secretItem::Attributes>& searches);

    std::vector<std::string> lockedCollections();

    /// Stores the item in place of the one with equal attributes, if there is one.
    void create(const std::string& collection, const KeychainItem& item,
                const SecretBytes& sealedText);

    /// Deletes the items, in this order; one that has gone is as good as deleted.
    void remove(const std::vector<std::string>& paths);

    GHandle<GVariant> pathList(const std::vector<std::string>& paths) const;

    /// Where an item lies.
    static std::string collectionOf(const std::string& itemPath);

private:
    SecretCall searchCall(const secretItem::Attributes& attributes) const;
    SecretCall propertyCall(const std::string& path, const char* interface,
                            const char* property) const;
    GHandle<GVariant> variant(const secretItem::Attributes& attributes) const;
    std::vector<std::string> paths(GVariant* list) const;
    std::vector<std::string> foundPaths(const std::optional<GHandle<GVariant>>& answer) const;
    std::vector<std::string> collections();
    bool readLocked(GVariant* answer) const;
    std::optional<SecretItemRecord> record(const std::string& path, GVariant* properties) const;
    GHandle<GVariant> child(GVariant* parent, std::size_t index) const;
    void refusePrompt(const GHandle<GVariant>& answer, std::size_t index);
    void change(std::vector<SecretCall> calls,
                std::vector<std::optional<GHandle<GVariant>>>& answers);

    SecretConnection& connection_;
    const GWork& at_;
};

}  // namespace platform
