#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/uuid/uuid.hpp>

#include "Platform/Coding/JSONDecoder.hpp"
#include "Platform/Coding/JSONEncoder.hpp"

/// Records of the kinds that the tests of this folder decode and encode.
namespace records
{

enum class Colour
{
    red,
    private_,
    green,
};
BOOST_DESCRIBE_ENUM(Colour, red, private_, green)
constexpr auto jsonKeys(const Colour*)
{
    return std::array{platform::JSONKey{"green", "Green"}};
}

struct Terms
{
    std::string accepted;
    bool operator==(const Terms&) const = default;
};
BOOST_DESCRIBE_STRUCT(Terms, (), (accepted))
constexpr auto jsonKeys(const Terms*)
{
    return std::array{platform::JSONKey{"accepted", "accepted_revision"}};
}

struct Order
{
    platform::Date issuedAt;
    std::string audience;
    std::optional<boost::uuids::uuid> uuid;
    std::optional<std::string> email;
    std::optional<std::vector<std::string>> tags;
    Terms terms;
    bool operator==(const Order&) const = default;
};
BOOST_DESCRIBE_STRUCT(Order, (), (issuedAt, audience, uuid, email, tags, terms))
constexpr auto jsonKeys(const Order*)
{
    return std::array{platform::JSONKey{"issuedAt", "iat"}, platform::JSONKey{"audience", "aud"}};
}

/// Has no keys of its own.
struct Revision
{
    platform::Date changedAt;
};
BOOST_DESCRIBE_STRUCT(Revision, (), (changedAt))

struct Entry
{
    std::string t;
};
BOOST_DESCRIBE_STRUCT(Entry, (), (t))

/// Accepts any JSON and keeps nothing of it.
struct Anything
{};

/// A text type of its own, made without a `std::string` in between.
struct Shout
{
    std::size_t letters = 0;
};

}  // namespace records

template <>
struct platform::JSONCoding<records::Anything>
{
    static records::Anything decode(const JSONReader&) { return {}; }
};

template <>
struct platform::JSONCoding<records::Shout>
{
    static records::Shout decode(const JSONReader& json) { return {json.text().size()}; }
    static void encode(const records::Shout& shout, JSONWriter& json)
    {
        json.text(std::string(shout.letters, 'A'));
    }
};
