#pragma once

#include "Platform/Coding/JSONDescribed.hpp"

#include <boost/container_hash/hash.hpp>
#include <boost/describe/class.hpp>

#include <array>
#include <string>

namespace tessera
{

/// Which revision of the terms the user has accepted, and which one is in force.
struct AccountTerms
{
    std::string acceptedRevision;
    std::string currentRevision;

    /// Revisions have no order: any difference asks for consent.
    bool needsConsent() const { return acceptedRevision != currentRevision; }

    /// "en": consent is recorded against the English text, whatever the user's language.
    std::string preferredLanguage() const { return "en"; }

    bool operator==(const AccountTerms&) const = default;
};

BOOST_DESCRIBE_STRUCT(AccountTerms, (), (acceptedRevision, currentRevision))

constexpr auto jsonKeys(const AccountTerms*)
{
    return std::array{platform::JSONKey{"acceptedRevision", "accepted_revision"},
                      platform::JSONKey{"currentRevision", "current_revision"}};
}

}  // namespace tessera
