#pragma once

#include "Valet/Identifier.hpp"

namespace valet
{

/// A group of programs that share stores. `make("group", "org.example.writers")` names the access
/// group "group.org.example.writers", which any program of the user may use unless its host closes
/// such groups; groups with another prefix must be listed in `platform::Services::program`.
class SharedGroupIdentifier
{
public:
    /// Nothing if either part is empty.
    static std::optional<SharedGroupIdentifier> make(std::string_view prefix,
                                                     std::string_view groupIdentifier)
    {
        auto group = Identifier::make(groupIdentifier);
        if (prefix.empty() || !group)
            return std::nullopt;
        return SharedGroupIdentifier(std::string(prefix), *std::move(group));
    }

    const std::string& prefix() const noexcept { return prefix_; }
    const std::string& groupIdentifier() const noexcept { return group_.backingString(); }

    /// The access group in the keychain.
    std::string description() const { return prefix_ + "." + groupIdentifier(); }

    /// The name of a store of this group that has no identifier of its own.
    const Identifier& asIdentifier() const noexcept { return group_; }

    bool operator==(const SharedGroupIdentifier&) const = default;

private:
    SharedGroupIdentifier(std::string prefix, Identifier group)
        : prefix_(std::move(prefix)), group_(std::move(group))
    {}

    std::string prefix_;
    Identifier group_;
};

}  // namespace valet
