#pragma once

#include "Tessera/Tokens/CaseError.hpp"

namespace tessera
{

enum class AccountErrorCase
{
    /// The operation needs a signed-in account, and there is none.
    accountRequired,
    /// Account information that was signed for another client application.
    audienceMismatch,
    /// The keychain cannot be read or written.
    keychainAccess
};

ErrorText errorText(AccountErrorCase error);

/// The conditions that the framework itself finds.
class AccountError final : public CaseError<AccountErrorCase>
{
public:
    using enum AccountErrorCase;
    using CaseError::CaseError;
};

}  // namespace tessera
