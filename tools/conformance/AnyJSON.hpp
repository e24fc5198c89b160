#pragma once

#include "Platform/Coding/JSONDecoder.hpp"

namespace conformance
{

/// A record that any JSON text decodes as. It looks at every value, so that a decoder which puts
/// its work off does it.
struct AnyValue
{};

/// A payload that any JSON object decodes as.
struct AnyObject
{};

}  // namespace conformance

template <>
struct platform::JSONCoding<conformance::AnyValue>
{
    static conformance::AnyValue decode(const JSONReader& json)
    {
        if (json.kind() == JSONKind::object)
        {
            for (const JSONMember& member : json.members())
                decode(member.value);
        }
        else if (json.kind() == JSONKind::array)
        {
            for (const JSONReader element : json.elements())
                decode(element);
        }
        else if (json.kind() == JSONKind::text)
        {
            json.text();
        }
        else if (json.kind() == JSONKind::number)
        {
            json.number();
        }
        return {};
    }
};

template <>
struct platform::JSONCoding<conformance::AnyObject>
{
    static conformance::AnyObject decode(const JSONReader& json)
    {
        if (json.kind() != JSONKind::object)
            throw json.mismatch();
        json.decode<conformance::AnyValue>();
        return {};
    }
};
