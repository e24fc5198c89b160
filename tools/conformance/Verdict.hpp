#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace conformance
{

/// What became of one case. The texts are for the report, short and printable.
struct Verdict
{
    enum class Outcome
    {
        passed,
        failed,
        /// The product has no such thing, or the answer is not known for this machine.
        notApplicable,
    };

    Outcome outcome = Outcome::passed;
    /// Of a failure. Nothing for the others.
    std::string expected;
    std::string found;

    static Verdict passed() { return {}; }
    static Verdict notApplicable() { return {Outcome::notApplicable, {}, {}}; }
    static Verdict failed(std::string_view expected, std::string_view found);
    static Verdict passedIf(bool condition, std::string_view expected, std::string_view found);
};

/// Any bytes as a short quoted text without control characters.
std::string shown(std::string_view bytes);

/// The same in hexadecimal.
std::string shownAsHex(std::string_view bytes);

/// The bytes of a hexadecimal or base64 text of a data file. Throw what tells that it is none.
std::string bytesFromHex(std::string_view hex);
std::string bytesFromBase64(std::string_view base64);

inline std::span<const std::byte> asBytes(std::string_view text)
{
    return std::as_bytes(std::span(text));
}

}  // namespace conformance
