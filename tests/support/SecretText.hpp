#pragma once

#include "Platform/Security/SecretBytes.hpp"

#include <span>
#include <string>
#include <string_view>

// Between the secrets of the product and the texts of a test.

inline platform::SecretBytes bytes(std::string_view text)
{
    return platform::SecretBytes(std::as_bytes(std::span(text)));
}

inline std::string text(const platform::SecretBytes& bytes)
{
    return {reinterpret_cast<const char*>(bytes.view().data()), bytes.size()};
}
