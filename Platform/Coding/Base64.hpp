#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace platform
{

/// Base64 (RFC 4648) as strict as a token needs it: only the alphabet's characters, padding exactly
/// as the length demands, no white space. Unused bits of the last character may be anything.
/// The functions are pure and may be called on any thread.

/// The room that decoding a text of so many characters needs at most.
constexpr std::size_t base64DecodedCapacity(std::size_t characters) noexcept
{
    return characters / 4 * 3 + 2;
}

/// Decodes standard base64 into `out` and returns the number of bytes, or nothing if the text is
/// refused; `out` may then hold a part. Less room than `base64DecodedCapacity` tells is a
/// programming error.
std::optional<std::size_t> decodeBase64(std::string_view text, std::span<std::byte> out);
std::optional<std::vector<std::byte>> decodeBase64(std::string_view text);

/// Decodes a part of a compact token: "-" and "_" stand for "+" and "/", a length that is no
/// multiple of four is filled up with "=", and the outcome must be standard base64. Hence full
/// padding and the standard alphabet pass too, and a length of one above a multiple of four never
/// does.
std::optional<std::size_t> decodeBase64URL(std::string_view text, std::span<std::byte> out);
std::optional<std::vector<std::byte>> decodeBase64URL(std::string_view text);

/// Standard base64 with padding.
std::string encodeBase64(std::span<const std::byte> bytes);

/// base64url without padding, as the parts of a compact token are written.
std::string encodeBase64URL(std::span<const std::byte> bytes);

}  // namespace platform
