#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform
{

/// Text in UTF-8: what the language's standard library does not offer. All functions are pure, work
/// by Unicode's own tables whatever the host's locale, and may be called on any thread.

/// The first place where bytes are not UTF-8.
struct IllFormedUTF8
{
    /// The bytes before it, all well-formed; the whole length if nothing is wrong.
    std::size_t offset;
    /// The bytes of the maximal ill-formed part (Unicode, "U+FFFD Substitution of Maximal
    /// Subparts"); zero if nothing is wrong.
    std::size_t size;
};
IllFormedUTF8 findIllFormedUTF8(std::string_view bytes) noexcept;

inline bool isValidUTF8(std::string_view bytes) noexcept
{
    return findIllFormedUTF8(bytes).size == 0;
}

/// Appends the bytes to `out`, each maximal ill-formed part replaced by one U+FFFD. `out` is
/// anything with `append(std::string_view)`, so that a secret goes straight to where it is kept.
template <class Sink>
void appendRepairedUTF8(std::string_view bytes, Sink& out)
{
    for (;;)
    {
        const IllFormedUTF8 bad = findIllFormedUTF8(bytes);
        out.append(bytes.substr(0, bad.offset));
        if (bad.size == 0)
            return;
        out.append(std::string_view("\xEF\xBF\xBD"));
        bytes.remove_prefix(bad.offset + bad.size);
    }
}

std::string repairedUTF8(std::string_view bytes);

/// The number of user-perceived characters (extended grapheme clusters, UAX #29).
std::size_t characterCount(std::string_view text);

/// The text if it has at most `maximum` user-perceived characters, otherwise the first `maximum` of
/// them and "…". The cost depends on `maximum`, not on the length of the text.
std::string abbreviated(std::string_view text, std::size_t maximum);

/// The text with the first letter of each word in title case and all others in lower case. A word
/// starts after every character that is neither a letter nor a mark; an apostrophe changes nothing.
std::string capitalized(std::string_view text);

/// "accepted_revision" becomes "acceptedRevision". Underscores at either end stay, and a key
/// without one between words stays as it is.
std::string convertedFromSnakeCase(std::string_view key);

}  // namespace platform
