#include "Platform/Security/Keychain/KeychainRequest.hpp"

#include "Platform/Coding/Text.hpp"

#include <algorithm>
#include <limits>

namespace platform
{
namespace
{

using enum KeychainAttribute;

const char* nameOf(KeychainAttribute attribute)
{
    switch (attribute)
    {
        case kSecClass:
            return "the class";
        case kSecAttrService:
            return "the service";
        case kSecUseDataProtectionKeychain:
            return "the use of the data protection keychain";
        case kSecAttrAccessGroup:
            return "the access group";
        case kSecAttrAccessible:
            return "the accessibility";
        case kSecAttrSynchronizable:
            return "the synchronizable flag";
        case kSecAttrAccessControl:
            return "the access control";
        case kSecAttrAccount:
            return "the key";
        case kSecValueData:
            return "the value";
        case kSecMatchLimit:
            return "the match limit";
        case kSecReturnData:
        case kSecReturnAttributes:
            return "what to hand out";
        case kSecUseAuthenticationContext:
            return "the authentication context";
    }
    return "an unknown attribute";
}

/// Takes typed values out of a query and remembers the first that was wrong.
class Reader
{
public:
    explicit Reader(const KeychainQuery& query) : query_(query)
    {
        const auto* itemClass = take<KeychainClass>(kSecClass);
        refuseUnless(itemClass && *itemClass == KeychainClass::kSecClassGenericPassword, kSecClass,
                     "is missing or not that of generic passwords");
        take<bool>(kSecUseDataProtectionKeychain);
    }

    template <class Value>
    const Value* take(KeychainAttribute attribute)
    {
        const auto* found = query_.find(attribute);
        const auto* value = found ? std::get_if<Value>(found) : nullptr;
        refuseUnless(!found || value, attribute, "is of another type");
        return value;
    }

    template <class Value>
    std::shared_ptr<Value> takeObject(KeychainAttribute attribute)
    {
        const auto* value = take<std::shared_ptr<Value>>(attribute);
        refuseUnless(!value || *value, attribute, "is null");
        return value ? *value : nullptr;
    }

    const std::string* takeText(KeychainAttribute attribute, std::size_t limit)
    {
        const auto* text = take<std::string>(attribute);
        refuseUnless(!text || text->size() <= limit, attribute, "is too long");
        refuseUnless(!text || isValidUTF8(*text), attribute, "is not UTF-8");
        return text;
    }

    bool takeFlag(KeychainAttribute attribute)
    {
        const auto* flag = take<bool>(attribute);
        return flag != nullptr && *flag;
    }

    void refuse(std::initializer_list<KeychainAttribute> attributes)
    {
        for (const auto attribute : attributes)
            refuseUnless(!query_.find(attribute), attribute, "has no place in this operation");
    }

    void refuseUnless(bool condition, KeychainAttribute attribute, const char* fault)
    {
        if (!condition && refusal_.status == KeychainStatus::success)
            refusal_ = {KeychainStatus::parameter, std::string("In a keychain operation, ") +
                                                       nameOf(attribute) + " " + fault + "."};
    }
    const Refusal& refusal() const { return refusal_; }
    bool isRefused() const { return refusal_.status != KeychainStatus::success; }

private:
    const KeychainQuery& query_;
    Refusal refusal_;
};

Refusal foreignGroup()
{
    return {KeychainStatus::missingEntitlement,
            "The program may not use the access group that it named."};
}

bool isListed(KeychainAccessible accessible)
{
    using enum KeychainAccessible;
    switch (accessible)
    {
        case kSecAttrAccessibleWhenUnlocked:
        case kSecAttrAccessibleAfterFirstUnlock:
        case kSecAttrAccessibleWhenPasscodeSetThisDeviceOnly:
        case kSecAttrAccessibleWhenUnlockedThisDeviceOnly:
        case kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly:
            return true;
    }
    return false;
}

/// The two attributes that say when an item may be read; they exclude each other.
struct Access
{
    std::optional<KeychainAccessible> accessible;
    std::optional<AccessControlFlag> control;
};

Access takeAccess(Reader& reader)
{
    const auto* accessible = reader.take<KeychainAccessible>(kSecAttrAccessible);
    const auto control = reader.takeObject<const AccessControl>(kSecAttrAccessControl);
    reader.refuseUnless(!accessible || isListed(*accessible), kSecAttrAccessible,
                        "is none of the listed ones");
    reader.refuseUnless(!accessible || !control, kSecAttrAccessible,
                        "stands beside an access control");
    if (control)
        return {control->accessible, control->flag};
    if (accessible)
        return {*accessible, std::nullopt};
    return {};
}

template <class Text>
std::optional<std::string> optional(const Text* text)
{
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

Refusal readPattern(Reader& reader, const KeychainProgram& program, ItemPattern& into)
{
    into.service = optional(reader.takeText(kSecAttrService, keychainLimits::service));
    into.account = optional(reader.takeText(kSecAttrAccount, keychainLimits::account));
    const auto* group = reader.takeText(kSecAttrAccessGroup, keychainLimits::accessGroup);
    into.synchronizable = reader.takeFlag(kSecAttrSynchronizable);
    const auto access = takeAccess(reader);
    into.accessible = access.accessible;
    into.accessControl = access.control;
    reader.refuse({kSecValueData});
    if (reader.isRefused())
        return reader.refusal();

    if (group)
    {
        into.accessGroups = {*group};
        return mayUse(program, *group) ? Refusal() : foreignGroup();
    }
    into.accessGroups = {program.identifier};
    for (const auto& listed : program.accessGroups)
        if (std::ranges::find(into.accessGroups, listed) == into.accessGroups.end())
            into.accessGroups.push_back(listed);
    std::erase_if(into.accessGroups, [&](const auto& one) { return !mayUse(program, one); });
    return {};
}

}  // namespace

bool mayUse(const KeychainProgram& program, std::string_view accessGroup)
{
    if (accessGroup == internalAccessGroup)
        return false;
    return accessGroup == program.identifier ||
           std::ranges::find(program.accessGroups, accessGroup) != program.accessGroups.end() ||
           (program.opensSharedGroups && accessGroup.starts_with("group."));
}

Refusal readAdd(const KeychainQuery& attributes, const KeychainProgram& program, KeychainItem& into)
{
    Reader reader(attributes);
    const auto* service = reader.takeText(kSecAttrService, keychainLimits::service);
    const auto* account = reader.takeText(kSecAttrAccount, keychainLimits::account);
    const auto* group = reader.takeText(kSecAttrAccessGroup, keychainLimits::accessGroup);
    const auto* data = reader.take<SecretBytes>(kSecValueData);
    const auto access = takeAccess(reader);
    into.identity.synchronizable = reader.takeFlag(kSecAttrSynchronizable);
    reader.refuse(
        {kSecMatchLimit, kSecReturnData, kSecReturnAttributes, kSecUseAuthenticationContext});
    reader.refuseUnless(data && !data->empty(), kSecValueData, "is missing or empty");
    reader.refuseUnless(!data || data->size() <= keychainLimits::value, kSecValueData,
                        "is too long");
    if (reader.isRefused())
        return reader.refusal();

    into.identity.service = service ? *service : "";
    into.identity.account = account ? *account : "";
    into.identity.accessGroup = group ? *group : program.identifier;
    if (!mayUse(program, into.identity.accessGroup))
        return foreignGroup();
    into.accessible =
        access.accessible.value_or(KeychainAccessible::kSecAttrAccessibleWhenUnlocked);
    into.accessControl = access.control.value_or(AccessControlFlag::none);
    into.data = *data;
    return {};
}

Refusal readCopy(const KeychainQuery& query, const KeychainProgram& program, CopyRequest& into)
{
    Reader reader(query);
    const auto* limit = reader.take<KeychainMatchLimit>(kSecMatchLimit);
    if (limit && *limit == KeychainMatchLimit::kSecMatchLimitAll)
        into.limit = std::numeric_limits<std::size_t>::max();
    into.data = reader.takeFlag(kSecReturnData);
    into.attributes = reader.takeFlag(kSecReturnAttributes);
    into.context = reader.takeObject<LocalAuthenticationContext>(kSecUseAuthenticationContext);
    return readPattern(reader, program, into.pattern);
}

Refusal readDelete(const KeychainQuery& query, const KeychainProgram& program, ItemPattern& into)
{
    Reader reader(query);
    const auto* limit = reader.take<KeychainMatchLimit>(kSecMatchLimit);
    reader.refuseUnless(!limit || *limit == KeychainMatchLimit::kSecMatchLimitAll, kSecMatchLimit,
                        "of one has no place in a delete");
    reader.refuse({kSecReturnData, kSecReturnAttributes, kSecUseAuthenticationContext});
    return readPattern(reader, program, into);
}

}  // namespace platform
