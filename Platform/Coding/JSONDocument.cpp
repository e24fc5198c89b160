#include "Platform/Coding/JSONDocument.hpp"

#include <charconv>
#include <cmath>
#include <functional>
#include <limits>

#include <boost/json/basic_parser_impl.hpp>

#include "Platform/Basics/Wipe.hpp"
#include "Platform/Coding/DecodingError.hpp"
#include "Platform/Coding/Text.hpp"

namespace platform::detail
{
namespace
{

using boost::json::error_code;
using Text = boost::json::string_view;

constexpr std::size_t deepestNesting = 512;

/// The number as exactly as a `double` can hold it; the parser's own value may be off by its last
/// bits. Returns an infinity if it is too large.
double exactReal(Text digits, double approximation)
{
    double exact = 0;
    const auto end = digits.data() + digits.size();
    if (std::from_chars(digits.data(), end, exact).ec == std::errc())
        return exact;
    return std::abs(approximation) < 1 ? 0 : std::numeric_limits<double>::infinity();
}

}  // namespace

/// Receives the events of Boost's parser and appends the nodes.
class JSONDocument::Builder
{
public:
    Builder(JSONDocument& document, Text source, KeyDecodingStrategy keys)
        : document_(document), source_(source), keys_(keys)
    {}

    // Names and limits that the parser demands.
    static constexpr std::size_t max_object_size = -1;
    static constexpr std::size_t max_array_size = -1;
    static constexpr std::size_t max_key_size = -1;
    static constexpr std::size_t max_string_size = -1;

    bool on_document_begin(error_code&) { return true; }
    bool on_document_end(error_code&) { return true; }
    bool on_object_begin(error_code&) { return open(JSONNodeType::object); }
    bool on_object_end(std::size_t, error_code&) { return close(); }
    bool on_array_begin(error_code&) { return open(JSONNodeType::array); }
    bool on_array_end(std::size_t, error_code&) { return close(); }
    bool on_key_part(Text part, std::size_t, error_code&) { return collect(part); }
    bool on_key(Text last, std::size_t size, error_code&)
    {
        const Text key = whole(last, size);
        if (keys_ == KeyDecodingStrategy::convertFromSnakeCase)
            return addText(JSONNodeType::key, converted(key));
        return addText(JSONNodeType::key, key);
    }
    bool on_string_part(Text part, std::size_t, error_code&) { return collect(part); }
    bool on_string(Text last, std::size_t size, error_code&)
    {
        return addText(JSONNodeType::text, whole(last, size));
    }
    bool on_number_part(Text, error_code&) { return true; }
    bool on_int64(std::int64_t value, Text, error_code&)
    {
        JSONNode& node = add(JSONNodeType::integer);
        node.integer = value;
        return true;
    }
    bool on_uint64(std::uint64_t value, Text, error_code&)
    {
        // Above the range of signed integers, or the parser would have said so.
        add(JSONNodeType::real).real = static_cast<double>(value);
        return true;
    }
    bool on_double(double approximation, Text digits, error_code& error)
    {
        const double value = exactReal(digits, approximation);
        if (!std::isfinite(value))
        {
            error = boost::json::error::exponent_overflow;
            return false;
        }
        add(JSONNodeType::real).real = value;
        return true;
    }
    bool on_bool(bool value, error_code&)
    {
        add(JSONNodeType::boolean).boolean = value;
        return true;
    }
    bool on_null(error_code&)
    {
        add(JSONNodeType::null).integer = 0;
        return true;
    }
    bool on_comment_part(Text, error_code&) { return true; }
    bool on_comment(Text, error_code&) { return true; }

private:
    JSONNode& add(JSONNodeType type)
    {
        auto& nodes = document_.nodes_;
        JSONNode node;
        node.integer = 0;
        node.size = 1;
        node.type = type;
        nodes.push_back(node);
        return nodes[nodes.size() - 1];
    }

    bool addText(JSONNodeType type, Text text)
    {
        JSONNode& node = add(type);
        node.text = text.data();
        node.size = static_cast<std::uint32_t>(text.size());
        return true;
    }

    /// While a container is open, its size holds the place of the one around it.
    bool open(JSONNodeType type)
    {
        add(type).size = innermost_;
        innermost_ = static_cast<std::uint32_t>(document_.nodes_.size() - 1);
        return true;
    }

    bool close()
    {
        JSONNode& container = document_.nodes_[innermost_];
        const std::uint32_t outer = container.size;
        container.size = static_cast<std::uint32_t>(document_.nodes_.size()) - innermost_;
        innermost_ = outer;
        return true;
    }

    /// A text with escapes comes in parts, from the source and from a buffer of the parser. Undone
    /// escapes are never longer than escapes, so that room for the source is room for all texts.
    bool collect(Text part)
    {
        document_.texts_.reserve(source_.size());
        document_.texts_.append({part.data(), part.size()});
        if (!isInSource(part) && !part.empty())
            wipe(const_cast<char*>(part.data()), part.size());
        return true;
    }

    Text whole(Text last, std::size_t size)
    {
        if (last.size() == size && isInSource(last))
            return last;
        collect(last);
        return {document_.texts_.data() + document_.texts_.size() - size, size};
    }

    bool isInSource(Text part) const
    {
        const std::less_equal<const char*> notAfter;
        return notAfter(source_.data(), part.data()) &&
               notAfter(part.data(), source_.data() + source_.size());
    }

    Text converted(Text key)
    {
        return document_.convertedKeys_.emplace_front(
            convertedFromSnakeCase({key.data(), key.size()}));
    }

    JSONDocument& document_;
    Text source_;
    KeyDecodingStrategy keys_;
    std::uint32_t innermost_ = 0;
};

JSONDocument::JSONDocument(std::span<const std::byte> source, KeyDecodingStrategy keys,
                           const DateDecodingStrategy& dates)
    : dates_(dates)
{
    const Text text(reinterpret_cast<const char*>(source.data()), source.size());
    boost::json::parse_options options;
    options.max_depth = deepestNesting;
    boost::json::basic_parser<Builder> parser(options, *this, text, keys);
    error_code error;
    // Places and sizes are counted in 32 bits, by ICU in 31.
    if (text.size() <= std::numeric_limits<std::int32_t>::max() &&
        parser.write_some(false, text.data(), text.size(), error) == text.size() && !error)
        return;
    throw DecodingError(DecodingError::Kind::dataCorrupted, {});
}

}  // namespace platform::detail
