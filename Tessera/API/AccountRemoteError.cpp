#include "Tessera/API/AccountRemoteError.hpp"

#include "Platform/Coding/JSONDescribed.hpp"
#include "Tessera/Tokens/LocalizedText.hpp"

#include <boost/container_hash/hash.hpp>

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

std::size_t hash_value(const AccountRemoteError& error)
{
    std::size_t seed = 0;
    boost::hash_combine(seed, error.code_.has_value());
    if (error.code_)
    {
        boost::hash_combine(seed, error.code_->index());
        if (const auto* known = std::get_if<AccountRemoteError::KnownCode>(&*error.code_))
            boost::hash_combine(seed, static_cast<int>(*known));
        else
            boost::hash_combine(seed, std::get<AccountRemoteError::OtherCode>(*error.code_).text);
    }
    boost::hash_combine(seed, error.message_);
    return seed;
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
