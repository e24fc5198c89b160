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

/// What the attributes of an operation say, by the table of `Keychain`: each function fills `into`
/// and returns success, or the status that refuses the operation.
KeychainStatus readAdd(const KeychainQuery& attributes, const KeychainProgram& program,
                       KeychainItem& into);
KeychainStatus readCopy(const KeychainQuery& query, const KeychainProgram& program,
                        CopyRequest& into);
KeychainStatus readDelete(const KeychainQuery& query, const KeychainProgram& program,
                          ItemPattern& into);

}  // namespace platform
