#include "Platform/Coding/Text.hpp"

#include <cstdint>
#include <cstring>
#include <memory>

#include <unicode/brkiter.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include "Platform/Basics/Fatal.hpp"

namespace platform
{
namespace
{

/// The length of the run of ASCII from `offset` on, in steps of eight bytes.
std::size_t asciiRun(std::string_view bytes, std::size_t offset) noexcept
{
    constexpr std::uint64_t highBits = 0x8080808080808080;
    const std::size_t start = offset;
    std::uint64_t eight = 0;
    for (; offset + sizeof eight <= bytes.size(); offset += sizeof eight)
    {
        std::memcpy(&eight, bytes.data() + offset, sizeof eight);
        if (eight & highBits)
            break;
    }
    return offset - start;
}

/// Finds the boundaries of user-perceived characters; offsets are in bytes.
class CharacterBoundaries
{
public:
    explicit CharacterBoundaries(std::string_view text)
    {
        UErrorCode status = U_ZERO_ERROR;
        iterator_.reset(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        utext_openUTF8(&text_, text.data(), static_cast<std::int64_t>(text.size()), &status);
        if (U_SUCCESS(status))
            iterator_->setText(&text_, status);
        if (U_FAILURE(status))
            fatal("ICU has no data for character boundaries");
    }
    CharacterBoundaries(const CharacterBoundaries&) = delete;
    CharacterBoundaries& operator=(const CharacterBoundaries&) = delete;
    ~CharacterBoundaries() { utext_close(&text_); }

    bool advance() { return iterator_->next() != icu::BreakIterator::DONE; }
    std::size_t offset() const { return static_cast<std::size_t>(iterator_->current()); }

private:
    UText text_ = UTEXT_INITIALIZER;
    std::unique_ptr<icu::BreakIterator> iterator_;
};

}  // namespace

IllFormedUTF8 findIllFormedUTF8(std::string_view bytes) noexcept
{
    const auto* const units = reinterpret_cast<const std::uint8_t*>(bytes.data());
    std::size_t next = 0;
    while ((next += asciiRun(bytes, next)) < bytes.size())
    {
        const std::size_t start = next;
        UChar32 character = 0;
        U8_NEXT(units, next, bytes.size(), character);
        if (character < 0)
            return {start, next - start};
    }
    return {bytes.size(), 0};
}

std::string repairedUTF8(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    appendRepairedUTF8(bytes, text);
    return text;
}

std::size_t characterCount(std::string_view text)
{
    CharacterBoundaries boundaries(text);
    std::size_t count = 0;
    while (boundaries.advance())
        ++count;
    return count;
}

std::string abbreviated(std::string_view text, std::size_t maximum)
{
    CharacterBoundaries boundaries(text);
    for (std::size_t count = 0; count < maximum; ++count)
    {
        if (!boundaries.advance())
            return std::string(text);
    }
    if (boundaries.offset() == text.size())
        return std::string(text);
    return std::string(text.substr(0, boundaries.offset())).append("…");
}

}  // namespace platform
