#include "Valet/Configuration.hpp"

#include <array>

namespace valet
{

std::string_view Configuration::description() const
{
    static constexpr std::array<std::string_view, std::variant_size_v<Value>> names{
        "VALValet", "VALSynchronizableValet", "VALSecureEnclaveValet",
        "VALSinglePromptSecureEnclaveValet"};
    return names.at(value_.index());
}

Accessibility Configuration::accessibility() const
{
    if (const auto* local = std::get_if<Valet>(&value_))
        return local->accessibility;
    if (const auto* cloud = std::get_if<ICloud>(&value_))
        return valet::accessibility(cloud->accessibility);
    return Accessibility::whenPasscodeSetThisDeviceOnly;
}

std::string_view Configuration::accessibilityDescription() const
{
    return valet::description(accessibility());
}

std::optional<SecureEnclaveAccessControl> Configuration::accessControl() const
{
    if (const auto* enclave = std::get_if<SecureEnclave>(&value_))
        return enclave->accessControl;
    if (const auto* singlePrompt = std::get_if<SinglePromptSecureEnclave>(&value_))
        return singlePrompt->accessControl;
    return std::nullopt;
}

}  // namespace valet
