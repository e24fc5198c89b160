#pragma once

#include "Platform/Security/Keychain/ItemStore.hpp"
#include "Platform/Security/Keychain/StoreKeychain.hpp"

#include <memory>

namespace platform
{

class LocalAuthenticationContext;

/// Whether the program may name the group.
bool mayUse(const KeychainProgram& program, std::string_view accessGroup);

struct CopyRequest
{
    ItemPattern pattern;
    std::size_t limit = 1;
    bool data = false;
    bool attributes = false;
    std::shared_ptr<LocalAuthenticationContext> context;
};

/// Why an operation is refused, for a person; it names attributes and never their values.
struct Refusal
{
    KeychainStatus status = KeychainStatus::success;
    std::string cause = {};
};

/// What the attributes of an operation say, by the table of `Keychain`: each function fills `into`,
/// or says why it refuses.
Refusal readAdd(const KeychainQuery& attributes, const KeychainProgram& program,
                KeychainItem& into);
Refusal readCopy(const KeychainQuery& query, const KeychainProgram& program, CopyRequest& into);
Refusal readDelete(const KeychainQuery& query, const KeychainProgram& program, ItemPattern& into);

}  // namespace platform
