#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Basics/Date.hpp"
#include "Platform/Coding/DecodingError.hpp"
#include "Platform/Coding/JSONDocument.hpp"

namespace platform
{

/// How a type is read from JSON and written to it. A type of its own kind specialises this:
///
///     template <>
///     struct platform::JSONCoding<Colour>
///     {
///         static Colour decode(const JSONReader& json) { return Colour::named(json.text()); }
///         static void encode(const Colour& colour, JSONWriter& json) { json.text(colour.name()); }
///     };
///
/// What is there already: see `JSONCoding.hpp` for the standard library's types and
/// `JSONDescribed.hpp` for described records and enumerations.
template <class T>
struct JSONCoding;

class JSONElements;
struct JSONMember;

enum class JSONKind
{
    null,
    boolean,
    number,
    text,
    array,
    object,
};

/// One value of a JSON text that is being decoded. A small handle, to be passed by value; it and
/// every view taken from it are valid during the decoding call only.
///
/// Every failure is a `DecodingError` with the path of the value. A null is `valueNotFound` for
/// whoever asks for anything else, and any other type that does not fit is `typeMismatch`.
class JSONReader
{
public:
    explicit JSONReader(const detail::JSONDocument& document) noexcept
        : JSONReader(document, document.root())
    {}

    JSONKind kind() const noexcept;
    bool isNull() const noexcept { return node_->type == detail::JSONNodeType::null; }

    /// The value as any type that has a `JSONCoding`.
    template <class T>
    T decode() const
    {
        return JSONCoding<T>::decode(*this);
    }

    bool boolean() const;
    /// `dataCorrupted` for a number with a fraction or beyond 64 bits. `1.0` and `1e3` are whole.
    std::int64_t integer() const;
    double number() const;
    std::string_view text() const;
    /// As the decoder's date strategy says.
    Date date() const;

    /// The same without an error, for those that try several types.
    std::optional<bool> tryBoolean() const noexcept;
    std::optional<std::int64_t> tryInteger() const noexcept;
    std::optional<double> tryNumber() const noexcept;
    std::optional<std::string_view> tryText() const noexcept;

    /// The member of an object. If a name stands twice, the first one counts.
    JSONReader member(std::string_view key) const;
    /// The member if there is one, be it null.
    std::optional<JSONReader> find(std::string_view key) const;
    /// All members with their keys, in the order of the text and each name once.
    std::vector<JSONMember> members() const;
    /// The elements of an array, to be iterated.
    JSONElements elements() const;

    /// A required member.
    template <class T>
    T decode(std::string_view key) const
    {
        return member(key).template decode<T>();
    }

    /// Nothing if the member is absent or null.
    template <class T>
    std::optional<T> decodeIfPresent(std::string_view key) const
    {
        const std::optional<JSONReader> value = find(key);
        if (!value || value->isNull())
            return std::nullopt;
        return value->template decode<T>();
    }

    /// Nothing also if the member cannot be decoded, or this is no object.
    template <class T>
    std::optional<T> decodeLeniently(std::string_view key) const
    {
        try
        {
            return decodeIfPresent<T>(key);
        }
        catch (const DecodingError&)
        {
            return std::nullopt;
        }
    }

    /// The keys that lead here, outermost first.
    std::vector<std::string> codingPath() const;

    /// The error to throw for a value of the right type that is not acceptable.
    DecodingError dataCorrupted() const;
    /// The error to throw for a value of another type: `valueNotFound` if it is null.
    DecodingError mismatch() const;

private:
    friend class JSONElements;

    JSONReader(const detail::JSONDocument& document, const detail::JSONNode* node) noexcept
        : document_(&document), node_(node)
    {}

    void require(detail::JSONNodeType type) const;

    const detail::JSONDocument* document_;
    const detail::JSONNode* node_;
};

/// One member of an object.
struct JSONMember
{
    std::string_view key;
    JSONReader value;
};

/// The elements of one array, for a range-based `for`.
class JSONElements
{
public:
    /// What a range-based `for` needs.
    class Iterator
    {
    public:
        JSONReader operator*() const noexcept { return {*document_, node_}; }
        Iterator& operator++() noexcept
        {
            node_ = node_->next();
            return *this;
        }
        bool operator==(const Iterator&) const = default;

    private:
        friend class JSONElements;
        Iterator(const detail::JSONDocument* document, const detail::JSONNode* node) noexcept
            : document_(document), node_(node)
        {}

        const detail::JSONDocument* document_;
        const detail::JSONNode* node_;
    };

    Iterator begin() const noexcept { return {array_.document_, array_.node_ + 1}; }
    Iterator end() const noexcept { return {array_.document_, array_.node_->next()}; }

private:
    friend class JSONReader;
    explicit JSONElements(const JSONReader& array) noexcept : array_(array) {}

    JSONReader array_;
};

}  // namespace platform
