#include "Platform/Coding/JSONWriter.hpp"

#include <cmath>

#include <boost/json/serializer.hpp>
#include <boost/json/value.hpp>

#include "Platform/Basics/Wipe.hpp"
#include "Platform/Coding/Text.hpp"
#include "Platform/Coding/WipedBuffer.hpp"

namespace platform
{
namespace
{

/// What Boost.JSON makes of a value, piece by piece.
template <class Value, class Emit>
void serialize(Value value, Emit emit)
{
    struct Chunk
    {
        char bytes[512];
        ~Chunk() { wipe(bytes, sizeof bytes); }
    } chunk;
    boost::json::serializer serializer;
    serializer.reset(value);
    while (!serializer.done())
    {
        const auto part = serializer.read(chunk.bytes);
        emit(std::string_view(part.data(), part.size()));
    }
}

}  // namespace

std::string EncodingError::errorDescription() const
{
    return "A number is not finite and cannot be written as JSON.";
}

void JSONWriter::beginValue()
{
    if (needsComma_)
        append(",");
    needsComma_ = true;
}

void JSONWriter::null()
{
    beginValue();
    append("null");
}

void JSONWriter::boolean(bool value)
{
    beginValue();
    append(value ? "true" : "false");
}

void JSONWriter::integer(std::int64_t value)
{
    beginValue();
    const boost::json::value node(value);
    serialize(&node, [this](std::string_view part) { append(part); });
}

void JSONWriter::number(double value)
{
    constexpr double exactlyWholeBelow = 9007199254740992.0;
    if (!std::isfinite(value))
        throw EncodingError();
    if (std::abs(value) < exactlyWholeBelow && std::trunc(value) == value)
        return integer(static_cast<std::int64_t>(value));
    beginValue();
    const boost::json::value node(value);
    serialize(&node, [this](std::string_view part) { append(part); });
}

void JSONWriter::text(std::string_view value)
{
    beginValue();
    if (isValidUTF8(value))
        return quoted(value);
    WipedBuffer<char, 512> repaired;
    appendRepairedUTF8(value, repaired);
    quoted({repaired.data(), repaired.size()});
}

void JSONWriter::quoted(std::string_view validText)
{
    serialize(boost::json::string_view(validText.data(), validText.size()),
              [this](std::string_view part) { append(part); });
}

void JSONWriter::beginArray()
{
    beginValue();
    append("[");
    needsComma_ = false;
}

void JSONWriter::endArray()
{
    append("]");
    needsComma_ = true;
}

void JSONWriter::beginObject()
{
    beginValue();
    append("{");
    needsComma_ = false;
}

void JSONWriter::endObject()
{
    append("}");
    needsComma_ = true;
}

void JSONWriter::key(std::string_view name)
{
    text(name);
    append(":");
    needsComma_ = false;
}

}  // namespace platform
