#include "Platform/Coding/DecodingError.hpp"

#include <utility>

namespace platform
{
namespace
{

std::string place(const std::vector<std::string>& codingPath)
{
    if (codingPath.empty())
        return "the top level";
    std::string joined;
    for (const std::string& key : codingPath)
    {
        if (!joined.empty())
            joined += " > ";
        joined += key;
    }
    return joined;
}

}  // namespace

DecodingError::DecodingError(Kind kind, std::vector<std::string> codingPath, std::string key)
    : kind_(kind), codingPath_(std::move(codingPath)), key_(std::move(key))
{}

const char* DecodingError::what() const noexcept
{
    switch (kind_)
    {
        case Kind::keyNotFound:
            return "DecodingError.keyNotFound";
        case Kind::typeMismatch:
            return "DecodingError.typeMismatch";
        case Kind::valueNotFound:
            return "DecodingError.valueNotFound";
        case Kind::dataCorrupted:
            break;
    }
    return "DecodingError.dataCorrupted";
}

std::string DecodingError::errorDescription() const
{
    switch (kind_)
    {
        case Kind::keyNotFound:
            return "The key \"" + key_ + "\" is missing at " + place(codingPath_) + ".";
        case Kind::typeMismatch:
            return "The value at " + place(codingPath_) + " is of the wrong type.";
        case Kind::valueNotFound:
            return "The value at " + place(codingPath_) + " is null, but it is required.";
        case Kind::dataCorrupted:
            break;
    }
    return "The data at " + place(codingPath_) + " is not valid.";
}

}  // namespace platform
