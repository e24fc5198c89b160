#pragma once

#include <cstddef>
#include <cstdint>
#include <forward_list>
#include <span>
#include <string>
#include <string_view>

#include "Platform/Coding/JSONDecodingStrategy.hpp"
#include "Platform/Coding/WipedBuffer.hpp"

namespace platform::detail
{

enum class JSONNodeType : std::uint8_t
{
    null,
    boolean,
    integer,
    real,
    text,
    key,
    array,
    object,
};

/// One value, or one key, of a parsed text. A container is followed by its contents; the value of
/// an object's member is preceded by its key.
struct JSONNode
{
    union {
        bool boolean;
        std::int64_t integer;
        double real;
        const char* text;
    };
    /// Bytes of a text or key; for containers the nodes of all that is inside, and one.
    std::uint32_t size;
    JSONNodeType type;

    std::string_view view() const noexcept { return {text, size}; }

    /// The node after this value and all that is inside it.
    const JSONNode* next() const noexcept
    {
        return this + (type >= JSONNodeType::array ? size : 1);
    }
};

/// A parsed JSON text (RFC 8259): one flat array of nodes, which is walked and released without
/// recursion. 512 nested levels pass, deeper ones are refused.
///
/// Texts without escapes are views into the source, which must therefore outlive the document. A
/// usual token or error body needs no heap. What was copied is wiped at the end.
/// Throws `DecodingError` (`dataCorrupted`, no path) for what is not JSON, and for numbers that
/// no `double` can hold.
class JSONDocument
{
public:
    JSONDocument(std::span<const std::byte> source, KeyDecodingStrategy keys,
                 const DateDecodingStrategy& dates);
    JSONDocument(const JSONDocument&) = delete;
    JSONDocument& operator=(const JSONDocument&) = delete;

    const JSONNode* root() const noexcept { return nodes_.data(); }
    const DateDecodingStrategy& dates() const noexcept { return dates_; }

private:
    class Builder;

    WipedBuffer<JSONNode, 96> nodes_;
    WipedBuffer<char, 1024> texts_;
    std::forward_list<std::string> convertedKeys_;
    const DateDecodingStrategy& dates_;
};

}  // namespace platform::detail
