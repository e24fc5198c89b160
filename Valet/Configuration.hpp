#pragma once

#include "Valet/CloudAccessibility.hpp"
#include "Valet/SecureEnclaveAccessControl.hpp"

#include <optional>
#include <string_view>
#include <utility>
#include <variant>

namespace valet
{

/// What kind of store it is, and how its items are protected. A value.
class Configuration
{
public:
    /// The kind of `Valet::valet` and of the shared group ones.
    struct Valet
    {
        Accessibility accessibility;
        bool operator==(const Valet&) const = default;
    };
    /// The kind of `Valet::iCloudValet`: items are marked as free to travel.
    struct ICloud
    {
        CloudAccessibility accessibility;
        bool operator==(const ICloud&) const = default;
    };
    /// The kind of `SecureEnclaveValet`.
    struct SecureEnclave
    {
        SecureEnclaveAccessControl accessControl;
        bool operator==(const SecureEnclave&) const = default;
    };
    /// The kind of `SinglePromptSecureEnclaveValet`.
    struct SinglePromptSecureEnclave
    {
        SecureEnclaveAccessControl accessControl;
        bool operator==(const SinglePromptSecureEnclave&) const = default;
    };
    using Value = std::variant<Valet, ICloud, SecureEnclave, SinglePromptSecureEnclave>;

    static Configuration valet(Accessibility accessibility)
    {
        return Configuration(Valet{accessibility});
    }
    static Configuration iCloud(CloudAccessibility accessibility)
    {
        return Configuration(ICloud{accessibility});
    }
    static Configuration secureEnclave(SecureEnclaveAccessControl accessControl)
    {
        return Configuration(SecureEnclave{accessControl});
    }
    static Configuration singlePromptSecureEnclave(SecureEnclaveAccessControl accessControl)
    {
        return Configuration(SinglePromptSecureEnclave{accessControl});
    }

    const Value& value() const noexcept { return value_; }

    /// The part of service names that stands for the kind of store.
    std::string_view description() const;

    /// Of the Secure Enclave kinds: `whenPasscodeSetThisDeviceOnly`.
    Accessibility accessibility() const;
    std::string_view accessibilityDescription() const;

    /// Nothing for the kinds that do not ask the user.
    std::optional<SecureEnclaveAccessControl> accessControl() const;

    /// Whether items may travel between the user's machines.
    bool synchronizable() const noexcept { return std::holds_alternative<ICloud>(value_); }

    bool operator==(const Configuration&) const = default;

private:
    explicit Configuration(Value value) : value_(value) {}

    Value value_;
};

}  // namespace valet
