#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace valet
{

/// The name of a store: a text that is not empty. The bytes go into the service name as they are.
class Identifier
{
public:
    /// Nothing for an empty text.
    static std::optional<Identifier> make(std::string_view backingString)
    {
        if (backingString.empty())
            return std::nullopt;
        return Identifier(std::string(backingString));
    }

    const std::string& backingString() const noexcept { return backingString_; }
    const std::string& description() const noexcept { return backingString_; }

    bool operator==(const Identifier&) const = default;
    friend std::size_t hash_value(const Identifier& identifier) noexcept
    {
        return std::hash<std::string>{}(identifier.backingString_);
    }

private:
    explicit Identifier(std::string backingString) : backingString_(std::move(backingString)) {}

    std::string backingString_;
};

}  // namespace valet
