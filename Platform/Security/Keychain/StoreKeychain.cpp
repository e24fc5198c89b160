#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Platform/Security/Keychain/KeychainRequest.hpp"

namespace platform
{

/// The delete is only a read that remembers its pattern; the add replaces what the pattern matches.
class StoreKeychain::Staged final : public KeychainStagedScope
{
public:
    explicit Staged(StoreKeychain& keychain) : keychain_(keychain) {}

    KeychainStatus deleteMatching(const KeychainQuery& query) override
    {
        ItemPattern pattern;
        auto status = readDelete(query, keychain_.surroundings_().program, pattern);
        if (status != KeychainStatus::success)
            return status;
        status = keychain_.store_->copyMatching(pattern, ItemContent::attributes, 1).status;
        // Remembered where nothing matched, too: another program may add the item before we do.
        if (status == KeychainStatus::success || status == KeychainStatus::itemNotFound)
            old_ = std::move(pattern);
        return status;
    }

    KeychainStatus add(const KeychainQuery& attributes) override
    {
        return keychain_.addReplacing(attributes, old_ ? &*old_ : nullptr);
    }

private:
    StoreKeychain& keychain_;
    std::optional<ItemPattern> old_;
};

StoreKeychain::StoreKeychain(std::shared_ptr<ItemStore> store,
                             std::function<KeychainSurroundings()> surroundings)
    : store_(std::move(store)), surroundings_(std::move(surroundings)), protection_(store_)
{}

KeychainStatus StoreKeychain::add(const KeychainQuery& attributes)
{
    return addReplacing(attributes, nullptr);
}

KeychainStatus StoreKeychain::addReplacing(const KeychainQuery& attributes, const ItemPattern* old)
{
    const auto surroundings = surroundings_();
    KeychainItem item;
    auto status = readAdd(attributes, surroundings.program, item);
    if (status == KeychainStatus::success)
        status = protection_.protect(item, surroundings.protection);

    if (status != KeychainStatus::success)
    {
        // The refusal is what the caller must hear, whatever becomes of the delete.
        if (old)
            store_->deleteMatching(*old);
        return status;
    }
    return old ? store_->replace(*old, item) : store_->add(item);
}

KeychainAnswer StoreKeychain::copyMatching(const KeychainQuery& query)
{
    const auto surroundings = surroundings_();
    CopyRequest request;
    const auto status = readCopy(query, surroundings.program, request);
    if (status != KeychainStatus::success)
        return {status, {}};

    const auto content = request.data ? ItemContent::attributesAndData : ItemContent::attributes;
    auto answer = store_->copyMatching(request.pattern, content, request.limit);
    for (auto& item : answer.items)
    {
        if (request.data && item.accessControl != AccessControlFlag::none)
        {
            if (!request.context)
                request.context = std::make_shared<LocalAuthenticationContext>();
            const auto released =
                protection_.release(item, *request.context, surroundings.protection);
            if (released != KeychainStatus::success)
                return {released, {}};
        }
        if (!request.attributes)
            item = KeychainItem{.identity = {}, .data = std::move(item.data)};
    }
    return answer;
}

KeychainStatus StoreKeychain::deleteMatching(const KeychainQuery& query)
{
    ItemPattern pattern;
    const auto status = readDelete(query, surroundings_().program, pattern);
    return status == KeychainStatus::success ? store_->deleteMatching(pattern) : status;
}

std::unique_ptr<KeychainStagedScope> StoreKeychain::stage()
{
    return std::make_unique<Staged>(*this);
}

}  // namespace platform
