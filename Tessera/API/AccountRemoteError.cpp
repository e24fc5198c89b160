#include "Tessera/API/AccountRemoteError.hpp"

#include "Platform/Coding/JSONDescribed.hpp"
#include "Tessera/Tokens/LocalizedText.hpp"

#include <array>

namespace tessera
{
namespace
{

struct CodeName
{
    std::string_view wireText;
    AccountRemoteError::KnownCode code;
    const char* name;
};

using enum AccountRemoteError::KnownCode;
constexpr std::array<CodeName, 3> knownCodes{{
    {"no_consent", noConsent, "AccountRemoteError.noConsent"},
    {"unauthorized", unauthorized, "AccountRemoteError.unauthorized"},
    {"reauthentication_required", reauthenticationRequired,
     "AccountRemoteError.reauthenticationRequired"},
}};

}  // namespace

AccountRemoteError::ErrorCode AccountRemoteError::errorCode(std::string_view wireText)
{
    for (const auto& known : knownCodes)
        if (known.wireText == wireText)
            return known.code;
    return OtherCode{std::string(wireText)};
}

const char* AccountRemoteError::what() const noexcept
{
    for (const auto& known : knownCodes)
        if (is(known.code))
            return known.name;
    return code_ ? "AccountRemoteError.other" : "AccountRemoteError";
}

std::string AccountRemoteError::errorDescription() const
{
    return message_.empty() ? localizedText("Unknown_Error") : message_;
}

}  // namespace tessera
