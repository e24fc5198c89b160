#include "Valet/KeychainError.hpp"

namespace valet
{

const char* KeychainError::what() const noexcept
{
    switch (case_)
    {
        case couldNotAccessKeychain:
            return "KeychainError.couldNotAccessKeychain";
        case userCancelled:
            return "KeychainError.userCancelled";
        case itemNotFound:
            return "KeychainError.itemNotFound";
        case missingEntitlement:
            return "KeychainError.missingEntitlement";
        case emptyKey:
            return "KeychainError.emptyKey";
        case emptyValue:
            return "KeychainError.emptyValue";
    }
    return "KeychainError";
}

}  // namespace valet
