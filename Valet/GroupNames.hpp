#pragma once

#include "Valet/SharedGroupIdentifier.hpp"

#include <optional>
#include <string_view>

namespace valet
{

/// The names of a shared group store from plain texts.
struct GroupNames
{
    SharedGroupIdentifier group;
    std::optional<Identifier> identifier;

    /// Nothing if a text is empty. No identifier at all is another matter than an empty one.
    static std::optional<GroupNames> make(std::string_view prefix, std::string_view groupIdentifier,
                                          std::optional<std::string_view> identifier)
    {
        auto group = SharedGroupIdentifier::make(prefix, groupIdentifier);
        if (!group || (identifier && identifier->empty()))
            return std::nullopt;
        return GroupNames{*std::move(group),
                          identifier ? Identifier::make(*identifier) : std::nullopt};
    }
};

}  // namespace valet
