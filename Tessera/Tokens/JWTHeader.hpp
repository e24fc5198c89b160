#pragma once

#include "Platform/Coding/JSONDescribed.hpp"

#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>

#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessera
{

/// What `JWTDecoder` needs of a header: the name of the signature algorithm.
template <class Header>
concept JWTHeaderProtocol = requires(const Header& header) {
    { header.alg } -> std::convertible_to<std::string_view>;
};

/// The header of a token (RFC 7515, 4.1).
struct JWTHeader
{
    std::string alg;
    std::optional<std::string> typ;
    std::optional<std::string> jku;
    std::optional<std::string> jwk;
    std::optional<std::string> kid;
    std::optional<std::string> x5u;
    std::optional<std::vector<std::string>> x5c;
    std::optional<std::string> x5t;
    std::optional<std::string> cty;
    std::optional<std::vector<std::string>> crit;

    bool operator==(const JWTHeader&) const = default;
};

BOOST_DESCRIBE_STRUCT(JWTHeader, (), (alg, typ, jku, jwk, kid, x5u, x5c, x5t, cty, crit))

static_assert(JWTHeaderProtocol<JWTHeader>);

}  // namespace tessera
