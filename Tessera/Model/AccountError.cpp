#include "Tessera/Model/AccountError.hpp"

#include <array>

namespace tessera
{

ErrorText errorText(AccountErrorCase error)
{
    constexpr std::array<ErrorText, 3> texts{{
        {"AccountError.accountRequired", "Account_Required_Error"},
        {"AccountError.audienceMismatch", "Verification_Error"},
        {"AccountError.keychainAccess", "Keychain_Access_Error"},
    }};
    return texts.at(static_cast<std::size_t>(error));
}

}  // namespace tessera
