#include "CodingExtras/DictionaryCodingKey.hpp"

namespace codingextras
{

std::string DictionaryCodingKey::description() const
{
    return "DictionaryCodingKey(stringValue: \"" + stringValue_ +
           "\", intValue: " + (intValue_ ? stringValue_ : "nil") + ")";
}

}  // namespace codingextras
