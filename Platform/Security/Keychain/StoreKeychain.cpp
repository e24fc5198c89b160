#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include "Platform/Basics/Fatal.hpp"
#include "Platform/Security/Authentication/LocalAuthenticationContext.hpp"
#include "Platform/Security/Keychain/KeychainRequest.hpp"

namespace platform
{
namespace
{

void tell(const KeychainSurroundings& surroundings, std::string cause, const char* nextStep)
{
    if (const auto& sink = surroundings.protection.diagnostics)
        sink({.area = "keychain", .cause = std::move(cause), .nextStep = nextStep});
}

/// The status of a request that was read, explained where it refuses.
KeychainStatus judged(const Refusal& refusal, const KeychainSurroundings& surroundings)
{
    if (refusal.status == KeychainStatus::missingEntitlement)
        tell(surroundings, refusal.cause,
             "List the group in Services::program, or use one that begins with \"group.\".");
    else if (refusal.status != KeychainStatus::success)
        tell(surroundings, refusal.cause,
             "The program must be mended: Keychain.hpp says what each attribute may hold.");
    return refusal.status;
}

}  // namespace

/// The delete is only a read that remembers its pattern; the add replaces what the pattern matches.
/// Both go by the surroundings of the moment when the scope was made.
class StoreKeychain::Staged final : public KeychainStagedScope
{
public:
    explicit Staged(StoreKeychain& keychain)
        : keychain_(keychain), surroundings_(keychain.surroundings())
    {}

    KeychainStatus deleteMatching(const KeychainQuery& query) override
    {
        ItemPattern pattern;
        auto status = judged(readDelete(query, surroundings_.program, pattern), surroundings_);
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
        return keychain_.addReplacing(attributes, surroundings_, old_ ? &*old_ : nullptr);
    }

private:
    StoreKeychain& keychain_;
    const KeychainSurroundings surroundings_;
    std::optional<ItemPattern> old_;
};

StoreKeychain::StoreKeychain(std::shared_ptr<ItemStore> store,
                             std::function<KeychainSurroundings()> surroundings)
    : store_(std::move(store)), makeSurroundings_(std::move(surroundings)), protection_(store_)
{}

KeychainSurroundings StoreKeychain::surroundings() const
{
    if (isAuthenticating())
        fatal(
            "A keychain was used from inside an authenticator: the read that waits for its "
            "answer would never end");
    return makeSurroundings_();
}

KeychainStatus StoreKeychain::add(const KeychainQuery& attributes)
{
    return addReplacing(attributes, surroundings(), nullptr);
}

KeychainStatus StoreKeychain::addReplacing(const KeychainQuery& attributes,
                                           const KeychainSurroundings& surroundings,
                                           const ItemPattern* old)
{
    KeychainItem item;
    bool couldNotTell = false;
    auto status = judged(readAdd(attributes, surroundings.program, item), surroundings);
    if (status == KeychainStatus::success)
        status = protection_.protect(item, surroundings.protection, &couldNotTell);

    if (status != KeychainStatus::success)
    {
        // The refusal is what the caller must hear, whatever becomes of the delete. Where nothing
        // was refused, the old item stays.
        if (old && !couldNotTell)
            store_->deleteMatching(*old);
        return status;
    }
    status = old ? store_->replace(*old, item) : store_->add(item);
    if (old && status == KeychainStatus::duplicateItem)
        tell(surroundings, "An item of the same name exists with another accessibility.",
             "Give each store a name of its own, or remove the other item.");
    return status;
}

KeychainAnswer StoreKeychain::copyMatching(const KeychainQuery& query)
{
    const auto around = surroundings();
    CopyRequest request;
    const auto status = judged(readCopy(query, around.program, request), around);
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
            const auto released = protection_.release(item, *request.context, around.protection);
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
    const auto around = surroundings();
    ItemPattern pattern;
    const auto status = judged(readDelete(query, around.program, pattern), around);
    return status == KeychainStatus::success ? store_->deleteMatching(pattern) : status;
}

std::unique_ptr<KeychainStagedScope> StoreKeychain::stage()
{
    return std::make_unique<Staged>(*this);
}

}  // namespace platform
