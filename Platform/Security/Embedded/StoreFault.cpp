#include "Platform/Security/Embedded/StoreFault.hpp"

#include <cerrno>
#include <system_error>

namespace platform
{

StoreFault StoreFault::ofSystem(std::string what, int error)
{
    std::string cause = std::move(what) + ": " + std::generic_category().message(error);
    switch (error)
    {
        case ENOSPC:
        case EDQUOT:
            return {KeychainStatus::diskFull, std::move(cause), "Free some space on the disk."};
        case EIO:
            return {KeychainStatus::inputOutput, std::move(cause), "Check the disk."};
        default:
            return {KeychainStatus::notAvailable, std::move(cause),
                    "Let the user own and write this place."};
    }
}

}  // namespace platform
