#pragma once

#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>

#include <string>

namespace tessera
{

/// The machine that the host application runs on, as the server is told.
struct AccountDevice
{
    std::string model;
    std::string systemVersion;

    /// This machine. Bytes that a header line must not hold, or that would end the device's part of
    /// the user agent (";", "(", ")"), are taken out of what the system says.
    static AccountDevice current();

    /// "Mac14,2; 14.5.0"
    std::string userAgentString() const;

    bool operator==(const AccountDevice&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountDevice, (), (model, systemVersion))

}  // namespace tessera
