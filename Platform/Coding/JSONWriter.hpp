#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Basics/LocalizedError.hpp"

namespace platform
{

template <class T>
struct JSONCoding;

/// A number that JSON cannot express: an infinity or no number at all.
class EncodingError final : public LocalizedError
{
public:
    const char* what() const noexcept override { return "EncodingError.invalidValue"; }
    std::string errorDescription() const override;
    bool operator==(const EncodingError&) const { return true; }
};

/// Writes one JSON text, value by value, into a sink: anything with `append(std::string_view)`,
/// which must outlive the writer. Quoting and number formatting are Boost.JSON's; commas and
/// brackets come by themselves. What the writer holds in between is wiped.
///
/// A text that is not UTF-8 is repaired with U+FFFD, for JSON could not carry it otherwise. Throws
/// `EncodingError`, and what the sink throws; the sink then holds a part.
class JSONWriter
{
public:
    template <class Sink>
    explicit JSONWriter(Sink& sink)
        : sink_(&sink),
          append_([](void* target, std::string_view text)
                  { static_cast<Sink*>(target)->append(text); })
    {}
    JSONWriter(const JSONWriter&) = delete;
    JSONWriter& operator=(const JSONWriter&) = delete;

    void null();
    void boolean(bool value);
    void integer(std::int64_t value);
    /// A whole value is written without a fraction or an exponent as far as `double` is exact.
    void number(double value);
    void text(std::string_view value);

    void beginArray();
    void endArray();
    void beginObject();
    void endObject();
    /// Announces the member whose value comes next.
    void key(std::string_view name);

    /// Any type that has a `JSONCoding`.
    template <class T>
    void value(const T& value)
    {
        JSONCoding<T>::encode(value, *this);
    }

    template <class T>
    void member(std::string_view name, const T& content)
    {
        key(name);
        value(content);
    }

    /// An optional member that holds nothing is left out.
    template <class T>
    void member(std::string_view name, const std::optional<T>& content)
    {
        if (content)
            member(name, *content);
    }

private:
    void append(std::string_view text) { append_(sink_, text); }
    void beginValue();
    void quoted(std::string_view validText);

    void* sink_;
    void (*append_)(void*, std::string_view);
    bool needsComma_ = false;
};

}  // namespace platform
