#pragma once

#include "tools/account-server/OpenSSL.hpp"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace accountserver
{

inline std::string hexadecimal(const unsigned char* bytes, std::size_t size)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < size; ++i)
    {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

/// 128 random bits in hexadecimal.
inline std::string randomText()
{
    std::array<unsigned char, 16> bytes{};
    demand(RAND_bytes(bytes.data(), bytes.size()) == 1, "make random bytes");
    return hexadecimal(bytes.data(), bytes.size());
}

inline std::string randomCode()
{
    std::uint64_t number = 0;
    demand(RAND_bytes(reinterpret_cast<unsigned char*>(&number), sizeof number) == 1,
           "make random bytes");
    const auto digits = std::to_string(number % 1'000'000);
    return std::string(6 - digits.size(), '0') + digits;
}

/// SHA-256 in hexadecimal.
inline std::string digestOf(std::string_view text)
{
    std::array<unsigned char, 32> digest{};
    demand(EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1,
           "make a digest");
    return hexadecimal(digest.data(), digest.size());
}

}  // namespace accountserver
