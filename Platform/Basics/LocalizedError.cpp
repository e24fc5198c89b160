#include "Platform/Basics/LocalizedError.hpp"

namespace platform
{

std::string describe(const std::exception& error)
{
    if (const auto* localized = dynamic_cast<const LocalizedError*>(&error))
        return localized->errorDescription();
    return error.what();
}

std::string describe(const std::exception_ptr& error)
{
    try
    {
        std::rethrow_exception(error);
    }
    catch (const std::exception& known)
    {
        return describe(known);
    }
    catch (...)
    {
        return "unknown error";
    }
}

}  // namespace platform
