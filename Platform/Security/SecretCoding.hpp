#pragma once

#include "Platform/Coding/JSONCoding.hpp"
#include "Platform/Security/SecretBytes.hpp"

namespace platform
{

/// A secret text is a JSON string; it passes through no memory that is not wiped.
template <>
struct JSONCoding<SecretString>
{
    static SecretString decode(const JSONReader& json) { return SecretString(json.text()); }
    static void encode(const SecretString& value, JSONWriter& json) { json.text(value.view()); }
};

}  // namespace platform
